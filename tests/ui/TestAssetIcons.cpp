#include "catalogue/ArrayController.h"
#include "catalogue/Cask.h"
#include "catalogue/CaskKind.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/Formula.h"
#include "catalogue/Tap.h"
#include "ui/AssetIcons.h"
#include "ui/PackageTableModel.h"

#include <QAbstractItemModelTester>
#include <QImage>
#include <QMap>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <memory>

using namespace Qt::StringLiterals;
using Persona = PackageOperation::Persona;
using Column = PackageTableModel::Column;

Q_DECLARE_METATYPE(Persona)
Q_DECLARE_METATYPE(Column)

namespace {

constexpr int iconSize = 32;

QImage render(const QIcon& icon)
{
    return icon.pixmap(iconSize, iconSize).toImage().convertToFormat(QImage::Format_ARGB32);
}

bool drawsSomething(const QImage& image)
{
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (qAlpha(image.pixel(x, y)) != 0) {
                return true;
            }
        }
    }
    return false;
}

// Where a cell's picture should come from.
enum class Expected { nothing, kind, hierarchy, own };

} // namespace

Q_DECLARE_METATYPE(Expected)

class TestAssetIcons : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void catalogueNamesResolve_data();
    void catalogueNamesResolve();
    void tableDecorations_data();
    void tableDecorations();

private:
    // The asset names the catalogue hands out, each with where it came from.
    QMap<QString, QString> catalogueAssetNames() const;
    bool insert(const QString& entity, const QList<QVariantHash>& rows);
    template <typename T>
    T* fetchOne(const QString& entity, const QString& token);

    QTemporaryDir m_folder;
    std::unique_ptr<CoreDataManager> m_store;
};

void TestAssetIcons::initTestCase()
{
    QVERIFY(m_folder.isValid());
    m_store = std::make_unique<CoreDataManager>(m_folder.filePath(u"Corvel X.sqlite"_s));
    const auto script = [](const QString& token, bool installed, bool leaf) {
        return QVariantHash{{u"token"_s, token},
                            {u"name"_s, token},
                            {u"installed"_s, installed},
                            {u"outdated"_s, false},
                            {u"isLeaf"_s, leaf}};
    };
    QVERIFY(insert(u"Formula"_s, {script(u"leaf"_s, true, true), script(u"dependency"_s, true, false),
                                  script(u"available"_s, false, false)}));
    const auto tap = [](const QString& repo, bool hasCommands) {
        return QVariantHash{{u"token"_s, u"acme/"_s + repo},
                            {u"user"_s, u"acme"_s},
                            {u"repo"_s, repo},
                            {u"hasCommands"_s, hasCommands}};
    };
    QVERIFY(insert(u"Tap"_s, {tap(u"commands"_s, true), tap(u"data"_s, false)}));
}

bool TestAssetIcons::insert(const QString& entity, const QList<QVariantHash>& rows)
{
    qsizetype next = 0;
    const auto ids = m_store->viewContext()->batchInsert(entity, [&](QVariantHash& values) {
        if (next == rows.size()) {
            return false;
        }
        values = rows.at(next++);
        return true;
    });
    return ids && ids.value().size() == rows.size();
}

template <typename T>
T* TestAssetIcons::fetchOne(const QString& entity, const QString& token)
{
    const auto found = m_store->viewContext()->fetch(entity, u"token == %@"_s, {token});
    return found && found.value().size() == 1 ? qobject_cast<T*>(found.value().constFirst()) : nullptr;
}

QMap<QString, QString> TestAssetIcons::catalogueAssetNames() const
{
    QMap<QString, QString> names;
    const auto add = [&names](const QString& origin, const QString& name) {
        if (!name.isNull()) {
            names.insert(origin, name);
        }
    };
    add(u"cask without artifacts"_s, CaskKind(std::nullopt).iconName());
    add(u"cask with several artifacts"_s, CaskKind(QStringList{u"app"_s, u"pkg"_s}).iconName());
    add(u"cask with an unheard-of artifact"_s, CaskKind(QStringList{u"hologram"_s}).iconName());
    for (const CaskKind::Entry& entry : CaskKind::singleArtifactKinds()) {
        add(u"cask kind "_s + QLatin1String(entry.artifact),
            CaskKind(QStringList{QString::fromLatin1(entry.artifact)}).iconName());
    }
    add(u"script kind"_s, Formula::kind().iconName);
    auto* self = const_cast<TestAssetIcons*>(this);
    for (const QString& token : {u"leaf"_s, u"dependency"_s}) {
        if (const Formula* formula = self->fetchOne<Formula>(u"Formula"_s, token)) {
            add(u"script hierarchy "_s + token, formula->hierarchy().iconName);
        }
    }
    for (const QString& token : {u"acme/commands"_s, u"acme/data"_s}) {
        if (const Tap* tap = self->fetchOne<Tap>(u"Tap"_s, token)) {
            add(u"repository "_s + token, tap->iconName());
        }
    }
    return names;
}

void TestAssetIcons::catalogueNamesResolve_data()
{
    QTest::addColumn<QString>("name");
    const QMap<QString, QString> names = catalogueAssetNames();
    // The records above must have been read, or the table would silently lack their rows.
    QVERIFY(names.contains(u"script hierarchy leaf"_s) && names.contains(u"script hierarchy dependency"_s));
    QVERIFY(names.contains(u"repository acme/commands"_s) && names.contains(u"repository acme/data"_s));
    for (auto it = names.cbegin(); it != names.cend(); ++it) {
        QTest::newRow(qPrintable(it.key())) << it.value();
    }
}

void TestAssetIcons::catalogueNamesResolve()
{
    QFETCH(QString, name);
    QVERIFY2(AssetIcons::contains(name), qPrintable(name));
    const QImage image = render(AssetIcons::icon(name));
    QVERIFY2(drawsSomething(image), qPrintable(name + u" does not render"_s));
    // Two names may share a drawing only where the catalogue itself shares the name (VST and VST3).
    const QMap<QString, QString> names = catalogueAssetNames();
    const QSet<QString> others(names.cbegin(), names.cend());
    for (const QString& other : others) {
        if (other != name) {
            QVERIFY2(render(AssetIcons::icon(other)) != image, qPrintable(name + u" looks like "_s + other));
        }
    }
}

void TestAssetIcons::tableDecorations_data()
{
    QTest::addColumn<Persona>("persona");
    QTest::addColumn<QString>("token");
    QTest::addColumn<QVariant>("artifacts");
    QTest::addColumn<bool>("ownIcon");
    QTest::addColumn<Column>("column");
    QTest::addColumn<Expected>("expected");

    const QVariant none;
    const auto list = [](const QStringList& artifacts) { return QVariant(artifacts); };
    QTest::newRow("package") << Persona::apps << u"pkg"_s << list({u"pkg"_s}) << false << Column::icon
                             << Expected::kind;
    QTest::newRow("no artifacts") << Persona::apps << u"bare"_s << none << false << Column::icon << Expected::kind;
    QTest::newRow("service has no picture")
        << Persona::apps << u"service"_s << list({u"service"_s}) << false << Column::icon << Expected::nothing;
    QTest::newRow("own picture wins over the kind")
        << Persona::apps << u"pkg"_s << list({u"pkg"_s}) << true << Column::icon << Expected::own;
    QTest::newRow("own picture of a service")
        << Persona::apps << u"service"_s << list({u"service"_s}) << true << Column::icon << Expected::own;
    QTest::newRow("app kind column is text only")
        << Persona::apps << u"app"_s << list({u"app"_s}) << false << Column::kind << Expected::nothing;
    QTest::newRow("source script") << Persona::scripts << u"leaf"_s << none << false << Column::hierarchy
                                   << Expected::hierarchy;
    QTest::newRow("dependency script") << Persona::scripts << u"dependency"_s << none << false << Column::hierarchy
                                       << Expected::hierarchy;
    QTest::newRow("script outside the hierarchy")
        << Persona::scripts << u"available"_s << none << false << Column::hierarchy << Expected::nothing;
    QTest::newRow("script name column") << Persona::scripts << u"leaf"_s << none << false << Column::name
                                        << Expected::nothing;
}

void TestAssetIcons::tableDecorations()
{
    QFETCH(Persona, persona);
    QFETCH(QString, token);
    QFETCH(QVariant, artifacts);
    QFETCH(bool, ownIcon);
    QFETCH(Column, column);
    QFETCH(Expected, expected);

    const QString entity = persona == Persona::apps ? u"Cask"_s : u"Formula"_s;
    if (persona == Persona::apps && !fetchOne<Cask>(entity, token)) {
        QVariantHash row{{u"token"_s, token}, {u"name"_s, token}, {u"installed"_s, true}, {u"outdated"_s, false}};
        if (artifacts.isValid()) {
            row.insert(u"artifacts"_s, artifacts);
        }
        QVERIFY(insert(entity, {row}));
    }
    auto* record = fetchOne<Package>(entity, token);
    QVERIFY(record);
    auto* app = qobject_cast<Cask*>(record);
    QImage own(iconSize, iconSize, QImage::Format_ARGB32);
    own.fill(Qt::magenta);
    if (app) {
        app->setIcon(ownIcon ? QVariant::fromValue(own) : QVariant());
    }

    ArrayController controller(m_store->viewContext(), entity);
    QVERIFY(controller.fetch());
    PackageTableModel model(controller, persona);
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    const int row = model.rowOf(record);
    QVERIFY(row >= 0);
    const QVariant decoration = model.index(row, model.columnOf(column)).data(Qt::DecorationRole);

    switch (expected) {
    case Expected::nothing:
        QVERIFY2(!decoration.isValid(), "the cell has a picture it should not have");
        return;
    case Expected::own:
        QCOMPARE(render(decoration.value<QIcon>()), own);
        return;
    case Expected::kind:
        QVERIFY(app);
        QVERIFY(drawsSomething(render(decoration.value<QIcon>())));
        QCOMPARE(render(decoration.value<QIcon>()), render(AssetIcons::icon(app->kind().iconName())));
        return;
    case Expected::hierarchy: {
        const auto* script = qobject_cast<Formula*>(record);
        QVERIFY(script);
        QVERIFY(drawsSomething(render(decoration.value<QIcon>())));
        QCOMPARE(render(decoration.value<QIcon>()), render(AssetIcons::icon(script->hierarchy().iconName)));
        return;
    }
    }
}

QTEST_MAIN(TestAssetIcons)
#include "TestAssetIcons.moc"
