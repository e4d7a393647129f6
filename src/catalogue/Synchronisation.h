// Brings the local catalogue into line with Homebrew: rebuilds the repositories and, in a full pass, the app and
// script libraries, then marks what is installed, outdated and a leaf. One pass at a time runs step by step on a
// worker and reports its progress on the GUI thread.
#pragma once

#include "catalogue/SyncSteps.h"

#include <QObject>
#include <QString>
#include <memory>

class ActivityCenter;
class CoreDataManager;
class Defaults;

namespace Homebrew {
class Sources;
}

class Synchronisation : public QObject {
    Q_OBJECT

public:
    enum class Form {
        full, // rebuilds the libraries too
        fast, // keeps the libraries and only refreshes what is installed, outdated and a leaf
    };
    Q_ENUM(Form)

    // Everything passed in must outlive this object.
    Synchronisation(CoreDataManager& store, const Homebrew::Sources& sources, Defaults& defaults,
                    ActivityCenter& activityCenter, QObject* parent = nullptr);
    // A running pass stops after the step under way, which this waits for.
    ~Synchronisation() override;

    // Over the shared store, brew commands and HTTP client, with the catalogue endpoint of the main bundle.
    static Synchronisation& shared();

    // GUI thread only. Starts a pass of the given form; false, and nothing starts, while a pass runs.
    bool start(Form form);

    // Whether a pass runs (what panes show as `processing`).
    bool isRunning() const { return m_running; }
    // The step running now, or the end of the last pass (completed or failed). Before the first pass: taps, with
    // an empty label and no progress.
    SyncSteps::Step currentStep() const { return m_step; }
    QString progressLabel() const;
    double progress() const { return m_progress; }

Q_SIGNALS:
    // Emitted on the GUI thread; also announced through the Notifications hub.
    void stepChanged(SyncSteps::Step step, double progress);
    // errorDescription is empty on success.
    void finished(bool succeeded, const QString& errorDescription);

private:
    struct Pass;

    void enter(SyncSteps::Step step);
    void finish(const std::shared_ptr<Pass>& pass, bool succeeded, const QString& errorDescription);
    // Makes a running pass stop at its next step boundary without waiting for the GUI thread again.
    void abandon();
    static void run(const std::shared_ptr<Pass>& pass);

    CoreDataManager& m_store;
    const Homebrew::Sources& m_sources;
    Defaults& m_defaults;
    ActivityCenter& m_activityCenter;

    std::shared_ptr<Pass> m_pass;
    bool m_running = false;
    bool m_started = false;
    Form m_form = Form::full;
    SyncSteps::Step m_step = SyncSteps::taps;
    double m_progress = 0.0;
};
