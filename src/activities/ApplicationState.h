// The state of the whole application that the interface observes: whether a background operation is running,
// and the transcript pane's visibility and thickness, which persist in the user's preferences.
#pragma once

#include <QObject>

class Defaults;

class ApplicationState : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isBusy READ isBusy WRITE setBusy NOTIFY isBusyChanged)
    Q_PROPERTY(bool transcriptPaneVisible READ transcriptPaneVisible WRITE setTranscriptPaneVisible NOTIFY
                   transcriptPaneVisibleChanged)
    Q_PROPERTY(double transcriptPaneThickness READ transcriptPaneThickness WRITE setTranscriptPaneThickness NOTIFY
                   transcriptPaneThicknessChanged)

public:
    // defaults must outlive this object.
    explicit ApplicationState(Defaults& defaults, QObject* parent = nullptr);

    // One flag, not a count: when operations overlap, the first to finish clears it.
    bool isBusy() const { return m_busy; }
    void setBusy(bool busy);

    bool transcriptPaneVisible() const { return m_transcriptPaneVisible; }
    // Also writes "TranscriptPaneVisible".
    void setTranscriptPaneVisible(bool visible);

    double transcriptPaneThickness() const { return m_transcriptPaneThickness; }
    // Also writes "TranscriptPaneThickness".
    void setTranscriptPaneThickness(double thickness);

    // Reads the transcript pane's state back from the preferences without writing it again.
    void restore();

Q_SIGNALS:
    void isBusyChanged(bool busy);
    void transcriptPaneVisibleChanged(bool visible);
    void transcriptPaneThicknessChanged(double thickness);

private:
    void assignTranscriptPaneVisible(bool visible);
    void assignTranscriptPaneThickness(double thickness);

    Defaults& m_defaults;
    bool m_busy = false;
    bool m_transcriptPaneVisible = false;
    double m_transcriptPaneThickness = 0.0;
};
