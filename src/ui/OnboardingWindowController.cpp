#include "ui/OnboardingWindowController.h"

#include "foundation/Alerter.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "ui/AssetIcons.h"
#include "ui/OnboardingDoneViewController.h"
#include "ui/OnboardingRequirementsViewController.h"
#include "ui/OnboardingSyncViewController.h"
#include "ui/OnboardingWelcomeViewController.h"

#include <QCloseEvent>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QShortcut>
#include <QStackedWidget>
#include <QVBoxLayout>

OnboardingWindowController::OnboardingWindowController(const Context& context, QWidget* parent)
    : QWidget(parent, Qt::Window)
    , m_defaults(context.defaults)
    , m_alerter(context.alerter)
    , m_pages(new QStackedWidget)
    , m_welcome(new OnboardingWelcomeViewController(context.defaults))
    , m_requirements(new OnboardingRequirementsViewController(context.installation, context.companion, context.alerter,
                                                              context.homebrewInstaller,
                                                              context.commandsRepositoryPage))
    , m_synchronisation(new OnboardingSyncViewController(context.synchronisation))
    , m_done(new OnboardingDoneViewController)
    , m_back(new QPushButton(tr("Back")))
    , m_continue(new QPushButton(tr("Continue")))
{
    setObjectName(QStringLiteral("onboardingWindow"));
    setWindowTitle(tr("Welcome to Corvel X"));
    m_back->setObjectName(QStringLiteral("backButton"));
    m_continue->setObjectName(QStringLiteral("continueButton"));

    // The steps down the side show where the person is and what is left.
    auto* steps = new QVBoxLayout;
    steps->setSpacing(10);
    auto* appIcon = new QLabel;
    appIcon->setPixmap(AssetIcons::icon(QStringLiteral("AppIcon")).pixmap(64, 64));
    appIcon->setAlignment(Qt::AlignHCenter);
    steps->addWidget(appIcon);
    steps->addSpacing(8);
    for (OnboardingPage* page :
         {static_cast<OnboardingPage*>(m_welcome), static_cast<OnboardingPage*>(m_requirements),
          static_cast<OnboardingPage*>(m_synchronisation), static_cast<OnboardingPage*>(m_done)}) {
        m_pages->addWidget(page);
        auto* label = new QLabel(page->title());
        m_stepLabels.append(label);
        steps->addWidget(label);
        connect(page, &OnboardingPage::stateChanged, this, &OnboardingWindowController::updateButtons);
    }
    steps->addStretch();
    auto* sidebar = new QFrame;
    sidebar->setObjectName(QStringLiteral("onboardingSteps"));
    sidebar->setFrameShape(QFrame::StyledPanel);
    sidebar->setMinimumWidth(170);
    sidebar->setLayout(steps);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_back);
    buttons->addWidget(m_continue);

    auto* right = new QVBoxLayout;
    right->addWidget(m_pages, 1);
    right->addLayout(buttons);

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(20);
    layout->addWidget(sidebar);
    layout->addLayout(right, 1);
    resize(760, 500);

    connect(m_back, &QPushButton::clicked, this, &OnboardingWindowController::goBack);
    connect(m_continue, &QPushButton::clicked, this, &OnboardingWindowController::goForward);
    // A window has no default button of its own: Return and Enter go to Continue, as in a dialog.
    for (const QKeySequence& key : {QKeySequence(Qt::Key_Return), QKeySequence(Qt::Key_Enter)}) {
        connect(new QShortcut(key, this), &QShortcut::activated, this, [this] {
            if (m_continue->isEnabled()) {
                m_continue->click();
            }
        });
    }
    // Escape asks, like closing the window: leaving the setup halfway must not happen by a slip of the finger.
    connect(new QShortcut(QKeySequence(Qt::Key_Escape), this), &QShortcut::activated, this, &QWidget::close);

    showPage(WelcomePage);
}

void OnboardingWindowController::showPage(int index)
{
    if (index < 0 || index >= m_pages->count()) {
        return;
    }
    m_pages->setCurrentIndex(index);
    for (int step = 0; step < m_stepLabels.size(); ++step) {
        QFont font = m_stepLabels.at(step)->font();
        font.setBold(step == index);
        m_stepLabels.at(step)->setFont(font);
        m_stepLabels.at(step)->setEnabled(step <= index);
    }
    m_continue->setText(index == DonePage ? tr("Start Using Corvel X") : tr("Continue"));
    page(index)->activate();
    updateButtons();
}

int OnboardingWindowController::currentPage() const
{
    return m_pages->currentIndex();
}

int OnboardingWindowController::pageCount() const
{
    return m_pages->count();
}

OnboardingPage* OnboardingWindowController::page(int index) const
{
    return qobject_cast<OnboardingPage*>(m_pages->widget(index));
}

void OnboardingWindowController::goForward()
{
    const OnboardingPage* current = page(currentPage());
    if (!current->isComplete()) {
        return;
    }
    if (currentPage() == DonePage) {
        finish();
        return;
    }
    showPage(currentPage() + 1);
}

void OnboardingWindowController::goBack()
{
    if (currentPage() > WelcomePage && !page(currentPage())->isBusy()) {
        showPage(currentPage() - 1);
    }
}

void OnboardingWindowController::updateButtons()
{
    const OnboardingPage* current = page(currentPage());
    m_back->setVisible(currentPage() != WelcomePage);
    m_back->setEnabled(!current->isBusy());
    m_continue->setEnabled(current->isComplete());
}

void OnboardingWindowController::finish()
{
    m_defaults.setValue(PreferenceKeys::IsFirstRun, false);
    m_finished = true;
    // The main window comes up before this one goes, so that the application never shows no window at all.
    Q_EMIT finished();
    close();
}

void OnboardingWindowController::closeEvent(QCloseEvent* event)
{
    if (m_finished || m_quitConfirmed) {
        QWidget::closeEvent(event);
        return;
    }
    event->ignore();
    if (m_asking) {
        return;
    }
    m_asking = true;
    Alert alert;
    alert.style = Alert::Style::Warning;
    alert.message = tr("Are you sure you want to quit Corvel X?");
    alert.informativeText = tr("The setup is not finished. It starts again the next time you open Corvel X.");
    alert.buttons = {tr("Continue Setup"), tr("Quit")};
    // The answer may come after the window is gone (e.g. when the application ends meanwhile).
    m_alerter.present(alert, [this, alive = QPointer<OnboardingWindowController>(this)](AlertResponse response) {
        if (!alive) {
            return;
        }
        m_asking = false;
        if (response.button == 1) {
            m_quitConfirmed = true;
            close();
            Q_EMIT quitRequested();
        }
    });
}
