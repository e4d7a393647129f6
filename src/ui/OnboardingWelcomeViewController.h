// The first page of the first-run assistant: what Corvel X does, and the person's choices about sending usage data
// and crash reports.
#pragma once

#include "ui/OnboardingPage.h"

class Defaults;
class PreferenceCheckBox;

class OnboardingWelcomeViewController : public OnboardingPage {
    Q_OBJECT

public:
    // defaults must outlive the page.
    explicit OnboardingWelcomeViewController(Defaults& defaults, QWidget* parent = nullptr);

    // Bound to "AllowDataCollection".
    PreferenceCheckBox* dataCollectionCheckBox() const { return m_dataCollection; }
    // Bound to "AllowAutomaticCrashReportsCollection".
    PreferenceCheckBox* crashReportsCheckBox() const { return m_crashReports; }

private:
    PreferenceCheckBox* m_dataCollection;
    PreferenceCheckBox* m_crashReports;
};
