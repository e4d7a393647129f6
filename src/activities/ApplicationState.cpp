#include "activities/ApplicationState.h"

#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"

ApplicationState::ApplicationState(Defaults& defaults, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
{}

void ApplicationState::setBusy(bool busy)
{
    if (m_busy == busy) {
        return;
    }
    m_busy = busy;
    Q_EMIT isBusyChanged(m_busy);
}

void ApplicationState::setTranscriptPaneVisible(bool visible)
{
    m_defaults.setValue(PreferenceKeys::TranscriptPaneVisible, visible);
    assignTranscriptPaneVisible(visible);
}

void ApplicationState::setTranscriptPaneThickness(double thickness)
{
    m_defaults.setValue(PreferenceKeys::TranscriptPaneThickness, thickness);
    assignTranscriptPaneThickness(thickness);
}

void ApplicationState::restore()
{
    assignTranscriptPaneVisible(m_defaults.boolValue(PreferenceKeys::TranscriptPaneVisible));
    assignTranscriptPaneThickness(m_defaults.doubleValue(PreferenceKeys::TranscriptPaneThickness));
}

void ApplicationState::assignTranscriptPaneVisible(bool visible)
{
    if (m_transcriptPaneVisible == visible) {
        return;
    }
    m_transcriptPaneVisible = visible;
    Q_EMIT transcriptPaneVisibleChanged(m_transcriptPaneVisible);
}

void ApplicationState::assignTranscriptPaneThickness(double thickness)
{
    if (m_transcriptPaneThickness == thickness) {
        return;
    }
    m_transcriptPaneThickness = thickness;
    Q_EMIT transcriptPaneThicknessChanged(m_transcriptPaneThickness);
}
