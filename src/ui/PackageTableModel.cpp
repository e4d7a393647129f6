#include "ui/PackageTableModel.h"

#include "catalogue/ArrayController.h"
#include "catalogue/Cask.h"
#include "catalogue/Formula.h"
#include "ui/AssetIcons.h"

#include <QCoreApplication>
#include <QImage>
#include <QPixmap>

namespace {

using Column = PackageTableModel::Column;
using Persona = PackageOperation::Persona;

const char* const appsContext = "AppsTableViewController";
const char* const scriptsContext = "ScriptsTableViewController";

struct ColumnTitle {
    Column column;
    const char* apps;
    const char* scripts;
};

// Listed once per string table, so that the translation tools find each title in the table it is looked up in.
const ColumnTitle titles[] = {
    {Column::icon, QT_TRANSLATE_NOOP("AppsTableViewController", "Icon"), nullptr},
    {Column::name, QT_TRANSLATE_NOOP("AppsTableViewController", "Name"),
     QT_TRANSLATE_NOOP("ScriptsTableViewController", "Name")},
    {Column::token, QT_TRANSLATE_NOOP("AppsTableViewController", "Token"),
     QT_TRANSLATE_NOOP("ScriptsTableViewController", "Token")},
    {Column::kind, QT_TRANSLATE_NOOP("AppsTableViewController", "Kind"), nullptr},
    {Column::version, QT_TRANSLATE_NOOP("AppsTableViewController", "Version"), nullptr},
    {Column::repository, QT_TRANSLATE_NOOP("AppsTableViewController", "Repository"),
     QT_TRANSLATE_NOOP("ScriptsTableViewController", "Repository")},
    {Column::description, QT_TRANSLATE_NOOP("AppsTableViewController", "Description"),
     QT_TRANSLATE_NOOP("ScriptsTableViewController", "Description")},
    {Column::hierarchy, nullptr, QT_TRANSLATE_NOOP("ScriptsTableViewController", "Hierarchy")},
    {Column::license, nullptr, QT_TRANSLATE_NOOP("ScriptsTableViewController", "License")},
    {Column::status, QT_TRANSLATE_NOOP("AppsTableViewController", "Status"),
     QT_TRANSLATE_NOOP("ScriptsTableViewController", "Status")},
};

// The status texts, in the same two tables.
[[maybe_unused]] const char* const statusTexts[] = {
    QT_TRANSLATE_NOOP("AppsTableViewController", "Install"),
    QT_TRANSLATE_NOOP("AppsTableViewController", "Upgrade"),
    QT_TRANSLATE_NOOP("AppsTableViewController", "Working…"),
    QT_TRANSLATE_NOOP("AppsTableViewController", "Installed"),
    QT_TRANSLATE_NOOP("ScriptsTableViewController", "Install"),
    QT_TRANSLATE_NOOP("ScriptsTableViewController", "Upgrade"),
    QT_TRANSLATE_NOOP("ScriptsTableViewController", "Working…"),
    QT_TRANSLATE_NOOP("ScriptsTableViewController", "Installed"),
};

const char* statusText(PackageTableModel::Status status)
{
    switch (status) {
    case PackageTableModel::Status::install:
        return "Install";
    case PackageTableModel::Status::upgrade:
        return "Upgrade";
    case PackageTableModel::Status::busy:
        return "Working…";
    case PackageTableModel::Status::installed:
        return "Installed";
    }
    return "";
}

// The keys whose change can alter what a row shows; anything else (a search's folded text) is not worth a repaint.
bool affectsDisplay(const QString& key)
{
    static const QStringList keys{
        QStringLiteral("isBusy"),      QStringLiteral("installed"),  QStringLiteral("outdated"),
        QStringLiteral("installable"), QStringLiteral("upgradable"), QStringLiteral("name"),
        QStringLiteral("token"),       QStringLiteral("tap"),        QStringLiteral("desc"),
        QStringLiteral("version"),     QStringLiteral("license"),    QStringLiteral("isLeaf"),
        QStringLiteral("icon"),        QStringLiteral("artifacts"),
    };
    return keys.contains(key);
}

} // namespace

PackageTableModel::PackageTableModel(ArrayController& controller, PackageOperation::Persona persona, QObject* parent)
    : QAbstractTableModel(parent)
    , m_controller(&controller)
    , m_persona(persona)
{
    if (persona == Persona::apps) {
        m_columns = {Column::icon,    Column::name,       Column::token,       Column::kind,
                     Column::version, Column::repository, Column::description, Column::status};
    } else {
        m_columns = {Column::name,    Column::token,       Column::hierarchy, Column::repository,
                     Column::license, Column::description, Column::status};
    }
    connect(&controller, &ArrayController::arrangedObjectsAboutToChange, this, [this] { beginResetModel(); });
    connect(&controller, &ArrayController::arrangedObjectsChanged, this, [this] {
        m_rowsStale = true;
        endResetModel();
    });
    connect(&controller, &ArrayController::arrangedObjectValueChanged, this, &PackageTableModel::objectValueChanged);
}

const char* PackageTableModel::translationContext() const
{
    return m_persona == Persona::apps ? appsContext : scriptsContext;
}

QString PackageTableModel::sortKey(Column column)
{
    switch (column) {
    case Column::icon:
    case Column::kind:
        return QStringLiteral("kind.label");
    case Column::name:
        return QStringLiteral("name");
    case Column::token:
        return QStringLiteral("token");
    case Column::version:
        return QStringLiteral("version");
    case Column::repository:
        return QStringLiteral("tap");
    case Column::description:
        return QStringLiteral("desc");
    case Column::hierarchy:
        return QStringLiteral("hierarchy.label");
    case Column::license:
        return QStringLiteral("license");
    case Column::status:
        return QStringLiteral("installed");
    }
    return {};
}

Package* PackageTableModel::recordAt(int row) const
{
    if (!m_controller || row < 0 || row >= m_controller->arrangedObjects().size()) {
        return nullptr;
    }
    return qobject_cast<Package*>(m_controller->arrangedObjects().at(row));
}

int PackageTableModel::rowOf(const ManagedObject* object) const
{
    if (!m_controller) {
        return -1;
    }
    if (m_rowsStale) {
        m_rows.clear();
        const QList<ManagedObject*>& arranged = m_controller->arrangedObjects();
        m_rows.reserve(arranged.size());
        for (int row = 0; row < arranged.size(); ++row) {
            m_rows.insert(arranged.at(row), row);
        }
        m_rowsStale = false;
    }
    return m_rows.value(object, -1);
}

PackageTableModel::Status PackageTableModel::statusOf(const Package& record)
{
    if (record.isBusy()) {
        return Status::busy;
    }
    if (!record.installed()) {
        return Status::install;
    }
    return record.outdated() ? Status::upgrade : Status::installed;
}

QString PackageTableModel::buttonIdentifier(Status status)
{
    switch (status) {
    case Status::install:
        return QStringLiteral("InstallTableButton");
    case Status::upgrade:
        return QStringLiteral("UpgradeTableButton");
    case Status::busy:
    case Status::installed:
        break;
    }
    return {};
}

int PackageTableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() || !m_controller ? 0 : int(m_controller->arrangedObjects().size());
}

int PackageTableModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_columns.size());
}

QVariant PackageTableModel::data(const QModelIndex& index, int role) const
{
    // Views ask about the root too (drops, delegates); only a wrong index of ours deserves the warning.
    if (!index.isValid() || !checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) {
        return {};
    }
    const Package* record = recordAt(index.row());
    if (!record) {
        return {};
    }
    const Column column = columnAt(index.column());
    switch (role) {
    case Qt::DisplayRole:
    case Qt::ToolTipRole:
        return displayValue(*record, column);
    case Qt::DecorationRole: {
        const QIcon icon = decorationOf(*record, column);
        return icon.isNull() ? QVariant() : QVariant(icon);
    }
    case RecordRole:
        return QVariant::fromValue(static_cast<ManagedObject*>(const_cast<Package*>(record)));
    case StatusRole:
        return int(statusOf(*record));
    case ButtonIdentifierRole: {
        const QString identifier = column == Column::status ? buttonIdentifier(statusOf(*record)) : QString();
        return identifier.isEmpty() ? QVariant() : QVariant(identifier);
    }
    default:
        return {};
    }
}

QVariant PackageTableModel::displayValue(const Package& record, Column column) const
{
    const auto* app = qobject_cast<const Cask*>(&record);
    const auto* script = qobject_cast<const Formula*>(&record);
    switch (column) {
    case Column::icon:
        return {};
    case Column::name:
        return record.name();
    case Column::token:
        return record.token();
    case Column::kind:
        return app ? app->kind().label() : Formula::kind().label;
    case Column::version:
        return app ? app->version() : QString();
    case Column::repository:
        return record.value(u"tap");
    case Column::description:
        return record.value(u"desc");
    case Column::hierarchy:
        return script ? script->hierarchy().label : QString();
    case Column::license:
        return script ? script->license() : QString();
    case Column::status:
        return localized(statusText(statusOf(record)));
    }
    return {};
}

QIcon PackageTableModel::iconOf(const Package& record) const
{
    const auto* app = qobject_cast<const Cask*>(&record);
    if (!app) {
        return {};
    }
    const QVariant& own = app->icon();
    switch (own.metaType().id()) {
    case QMetaType::QIcon:
        return own.value<QIcon>();
    case QMetaType::QPixmap:
        return QIcon(own.value<QPixmap>());
    case QMetaType::QImage:
        return QIcon(QPixmap::fromImage(own.value<QImage>()));
    default:
        break;
    }
    // The kind's picture until a picture of its own arrives; "service" has none.
    return assetIcon(app->kind().iconName());
}

QIcon PackageTableModel::decorationOf(const Package& record, Column column) const
{
    const auto* script = qobject_cast<const Formula*>(&record);
    switch (column) {
    case Column::icon:
        return iconOf(record);
    case Column::hierarchy:
        return script ? assetIcon(script->hierarchy().iconName) : QIcon();
    default:
        return {};
    }
}

QIcon PackageTableModel::assetIcon(const QString& name) const
{
    if (name.isEmpty()) {
        return {};
    }
    // Thousands of rows share a handful of pictures: each SVG is parsed once.
    auto cached = m_assetIcons.constFind(name);
    if (cached == m_assetIcons.cend()) {
        cached = m_assetIcons.insert(name, AssetIcons::icon(name));
    }
    return *cached;
}

QVariant PackageTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || section < 0 || section >= m_columns.size()) {
        return {};
    }
    const Column column = m_columns.at(section);
    const char* title = nullptr;
    for (const ColumnTitle& entry : titles) {
        if (entry.column == column) {
            title = m_persona == Persona::apps ? entry.apps : entry.scripts;
        }
    }
    if (title == nullptr) {
        return {};
    }
    switch (role) {
    case Qt::DisplayRole:
        // The icon column is too narrow for a title; its name still shows in tooltips and the column menu.
        return column == Column::icon ? QString() : localized(title);
    case Qt::ToolTipRole:
        return localized(title);
    default:
        return {};
    }
}

Qt::ItemFlags PackageTableModel::flags(const QModelIndex& index) const
{
    if (!index.isValid() || !checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) {
        return Qt::NoItemFlags;
    }
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
}

QString PackageTableModel::localized(const char* text) const
{
    return QCoreApplication::translate(translationContext(), text);
}

void PackageTableModel::objectValueChanged(ManagedObject* object, const QString& key)
{
    if (!affectsDisplay(key)) {
        return;
    }
    const int row = rowOf(object);
    if (row < 0) {
        return;
    }
    Q_EMIT dataChanged(index(row, 0), index(row, columnCount() - 1));
}
