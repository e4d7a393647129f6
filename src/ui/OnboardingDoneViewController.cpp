#include "ui/OnboardingDoneViewController.h"

#include <QLabel>
#include <QVBoxLayout>

OnboardingDoneViewController::OnboardingDoneViewController(QWidget* parent)
    : OnboardingPage(tr("Corvel X is ready"), parent)
{
    QVBoxLayout* layout = contentLayout();
    layout->addWidget(paragraph(tr("The catalogue is up to date.")));
    layout->addWidget(
        paragraph(tr("Switch between Apps and Scripts in the toolbar, search with the search field, and choose an "
                     "action for the selected rows. The transcript below the table shows what Homebrew prints.")));
    layout->addWidget(paragraph(tr("Repositories, maintenance and synchronisation are in the settings.")));
    layout->addStretch();
}
