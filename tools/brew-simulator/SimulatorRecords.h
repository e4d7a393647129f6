// What the simulated brew says about packages and taps: info --json=v2 records with "installed" filled in from the
// state the way Homebrew fills it, tap-info records, and the names, paths and sizes its progress lines show.
#pragma once

#include "SimulatorCatalogue.h"
#include "SimulatorState.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

class SimulatorRecords {
public:
    static inline const QString companionTap = QStringLiteral("tesselworks/corvel-cmd");
    static inline const QString companionCommand = QStringLiteral("corvel-tap-content-info");

    struct Footprint {
        int files = 0;
        qint64 bytes = 0;
    };

    // Reads through the references, so it answers for the state as the command has changed it so far.
    SimulatorRecords(const QString& prefix, const SimulatorState& state, const SimulatorCatalogue& catalogue);

    QJsonObject formulaInfo(const QJsonObject& record) const;
    QJsonObject caskInfo(const QJsonObject& record) const;
    // Also for packages the catalogue no longer lists: brew still knows what their kegs hold.
    QJsonObject installedFormulaInfo(const QString& token) const;
    QJsonObject installedCaskInfo(const QString& token) const;
    QJsonObject tapInfoRecord(const QString& tap) const;

    // The tokens of the record's dependencies that the catalogue knows; the others count as provided by the system.
    QStringList directDependencies(const QJsonObject& record) const;
    // The dependencies still to install, each before the formulae that need it.
    QList<QJsonObject> dependencyOrder(const QJsonObject& record) const;
    // The "==> Moving App ..." lines of a cask's artifacts, or their removal counterparts.
    QStringList artifactLines(const QJsonObject& record, const QString& appdir, const QString& fontdir,
                              bool removing) const;

    QString formulaTap(const QString& token) const;
    QString caskTap(const QString& token) const;
    // Fully qualified ("owner/tap/name") outside the core taps, as brew's lists print them.
    QString formulaName(const QString& token) const;
    QString caskName(const QString& token) const;
    QString formulaUrl(const QJsonObject& record, const QString& version) const;
    QString caskUrl(const QJsonObject& record, const QString& version) const;
    QString cellar(const QString& token, const QString& version) const;
    QString tapPath(const QString& tap) const;
    QString cachePath() const;
    // "🍺  <prefix>/Cellar/<name>/<version>: N files, SIZE, built in 0 seconds"
    QString beer(const QString& token, const QString& version) const;
    QString uninstalling(const QString& token, const QString& version) const;

    static QString formulaVersion(const QJsonObject& record);
    static Footprint footprint(const QString& seed);
    static QString readableSize(qint64 bytes);
    static QString sentence(const QStringList& items);
    static QString counted(qsizetype count, const QString& singular, const QString& plural);
    // What a tap holds, as tap and untap report it: "1 command and 3 casks (12 files, 40KB)".
    static QString tapSummary(const QString& name, qsizetype commands, qsizetype casks, qsizetype formulae);
    static bool validTapName(const QString& name);

private:
    const QString& m_prefix;
    const SimulatorState& m_state;
    const SimulatorCatalogue& m_catalogue;
};
