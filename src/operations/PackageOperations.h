// The engine behind the operations on apps and scripts: marks each record busy, runs one brew command per record on
// the shared pool with the record reached by its identity in a store context of its own, refreshes the record after
// success, and reports every outcome in the log, in an alert on failure and through signals. AppOperations and
// ScriptOperations add what each table offers; a command line drives them just as well as the widgets.
#pragma once

#include "foundation/Alerter.h"
#include "foundation/Result.h"
#include "homebrew/HomebrewLocations.h"
#include "operations/PackageOperation.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <functional>
#include <optional>

class Analytics;
class ApplicationState;
class CoreDataManager;
class Defaults;
class ManagedObject;
class Package;

namespace Homebrew {
class Commands;
}

class PackageOperations : public QObject {
    Q_OBJECT

public:
    // What every operation uses; all of it must outlive the operations and the commands they started. Commands
    // that end after this object is gone are not reported, and their records stay marked busy.
    struct Services {
        CoreDataManager& store;
        const Homebrew::Commands& commands;
        ApplicationState& state;
        Defaults& defaults;
        Alerter& alerter;
        Analytics& analytics;
    };

    PackageOperation::Persona persona() const { return m_persona; }

Q_SIGNALS:
    // Once per request, after its questions were answered: the tokens whose commands started, in order; empty when
    // the person cancelled or no record offered the operation. Each of them ends with one operationFinished.
    void requestSettled(PackageOperation::Kind kind, const QStringList& tokens);
    // One command ended and its record is idle again; on failure the alert has been presented.
    void operationFinished(PackageOperation::Kind kind, const QString& token, bool succeeded,
                           const QString& errorDescription);

protected:
    // Brings record up to date after its command succeeded, in the worker's context (the engine saves). Runs on a
    // worker thread, so it may block but must only use what is thread-safe.
    using Refresh = std::function<Result<void>(PackageOperation::Kind kind, ManagedObject& record)>;

    PackageOperations(PackageOperation::Persona persona, const Services& services, Refresh refresh,
                      QObject* parent = nullptr);

    const Services& services() const { return m_services; }

    // The records that offer kind right now.
    static QList<QPointer<Package>> offering(PackageOperation::Kind kind, const QList<Package*>& records);
    static QStringList names(const QList<QPointer<Package>>& records);

    // Asks alert; proceed runs once confirmed, otherwise the request settles with nothing started.
    void confirmThen(PackageOperation::Kind kind, const Alert& alert, std::function<void()> proceed);
    // Starts one command per record that still offers kind (a record may have gone or become busy while a question
    // was open), all at once, and settles the request.
    void run(PackageOperation::Kind kind, const QList<QPointer<Package>>& records,
             const Homebrew::Locations& locations = {});

    // On the GUI thread after a success, once the record is idle and the success is logged.
    virtual void didSucceed(PackageOperation::Kind kind, const QString& token, const std::optional<QString>& tap) = 0;

private:
    void start(PackageOperation::Kind kind, Package* record, const Homebrew::Locations& locations);
    void finish(PackageOperation::Kind kind, const QPointer<Package>& record, const QString& token,
                const std::optional<QString>& tap, const Result<void>& outcome);

    const PackageOperation::Persona m_persona;
    const Services m_services;
    const Refresh m_refresh;
};
