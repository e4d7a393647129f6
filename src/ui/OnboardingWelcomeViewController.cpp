#include "ui/OnboardingWelcomeViewController.h"

#include "foundation/PreferenceKeys.h"
#include "ui/PreferenceCheckBox.h"

#include <QLabel>
#include <QVBoxLayout>

OnboardingWelcomeViewController::OnboardingWelcomeViewController(Defaults& defaults, QWidget* parent)
    : OnboardingPage(tr("Welcome to Corvel X"), parent)
    , m_dataCollection(new PreferenceCheckBox(tr("Share anonymous usage data to help improve Corvel X"), defaults,
                                              PreferenceKeys::AllowDataCollection))
    , m_crashReports(new PreferenceCheckBox(tr("Send crash reports automatically"), defaults,
                                            PreferenceKeys::AllowAutomaticCrashReportsCollection))
{
    QVBoxLayout* layout = contentLayout();
    layout->addWidget(paragraph(
        tr("Corvel X puts a window on Homebrew. Browse every app and script that Homebrew offers, search them, and "
           "install, upgrade, reinstall or remove them with a click; add and remove repositories, and keep your "
           "machine tidy with Homebrew's maintenance commands.")));
    layout->addWidget(paragraph(
        tr("Every change is made by Homebrew itself, and the output of each command is kept in the transcript.")));
    layout->addSpacing(12);
    layout->addWidget(paragraph(tr("You can change these choices at any time in the settings:")));
    layout->addWidget(m_dataCollection);
    auto* dataNote =
        paragraph(tr("Events such as an app installed, with the app's name, are sent without anything that identifies "
                     "you or your machine."));
    dataNote->setIndent(24);
    layout->addWidget(dataNote);
    layout->addWidget(m_crashReports);
    auto* crashNote = paragraph(tr("A report of a crash is otherwise shown to you before it is sent."));
    crashNote->setIndent(24);
    layout->addWidget(crashNote);
    layout->addStretch();
}
