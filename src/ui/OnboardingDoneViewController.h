// The last page of the first-run assistant: everything is ready, and where to find things in the main window.
#pragma once

#include "ui/OnboardingPage.h"

class OnboardingDoneViewController : public OnboardingPage {
    Q_OBJECT

public:
    explicit OnboardingDoneViewController(QWidget* parent = nullptr);
};
