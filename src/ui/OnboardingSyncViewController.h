// The first-run assistant's synchronisation page: runs the first full synchronisation of the catalogue and follows
// it step by step; a failure shows the reason and a retry.
#pragma once

#include "ui/OnboardingPage.h"

class QLabel;
class QProgressBar;
class QPushButton;
class Synchronisation;

class OnboardingSyncViewController : public OnboardingPage {
    Q_OBJECT
    Q_PROPERTY(bool processing READ isProcessing NOTIFY processingChanged)

public:
    // synchronisation must outlive the page.
    explicit OnboardingSyncViewController(Synchronisation& synchronisation, QWidget* parent = nullptr);

    bool isComplete() const override { return m_complete; }
    bool isBusy() const override { return isProcessing(); }
    // Starts a full pass unless one runs already (which the page then follows) or one has completed.
    void activate() override;

    // Whether the synchronisation runs.
    bool isProcessing() const;

    // 0 to 100.
    QProgressBar* progress() const { return m_progress; }
    // The running step's label, "Synchronisation completed" or "Unable to synchronise".
    QLabel* progressLabel() const { return m_progressLabel; }
    // Why the last pass failed; hidden otherwise.
    QLabel* errorLabel() const { return m_error; }
    QPushButton* tryAgainButton() const { return m_tryAgain; }

public Q_SLOTS:
    // Starts a full pass again after a failure.
    void retry();

Q_SIGNALS:
    void processingChanged(bool processing);

private:
    void start();
    void follow();
    void finished(bool succeeded, const QString& errorDescription);

    Synchronisation& m_synchronisation;
    QProgressBar* m_progress;
    QLabel* m_progressLabel;
    QLabel* m_error;
    QPushButton* m_tryAgain;
    bool m_complete = false;
    // A failed pass waits for Try Again rather than starting again when the page comes back.
    bool m_failed = false;
    bool m_followed = false;
};
