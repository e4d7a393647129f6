// The pane below the tables that shows the output of the brew children: a sources pop-up that narrows it to one
// activity, the list of lines, and copy, save and clear.
#pragma once

#include "activities/Activity.h"

#include <QWidget>
#include <functional>
#include <optional>

class ActivityCenter;
class Alerter;
class Defaults;
class QAction;
class QComboBox;
class QLabel;
class QListView;
class Transcript;
class TranscriptModel;

class TranscriptPane : public QWidget {
    Q_OBJECT

public:
    // Asks where to save; done receives the chosen path, or nothing when the person cancelled. It may answer
    // later, from the event loop.
    using SavePathChooser =
        std::function<void(const QString& proposedName, std::function<void(std::optional<QString>)> done)>;

    TranscriptPane(Transcript& transcript, ActivityCenter& activityCenter, Defaults& defaults, Alerter& alerter,
                   QWidget* parent = nullptr);

    TranscriptModel* model() const { return m_model; }
    QListView* listView() const { return m_listView; }
    QComboBox* sourcesBox() const { return m_sourcesBox; }

    // Copies the selected lines (Ctrl+C in the list).
    QAction* copyAction() const { return m_copyAction; }
    // Asks for a file and writes the lines shown to it.
    QAction* saveAction() const { return m_saveAction; }
    // Empties the transcript; the sources stay.
    QAction* clearAction() const { return m_clearAction; }

    // Replaces the window-modal save dialog (tests answer without one).
    void setSavePathChooser(SavePathChooser chooser);

    // Copies the messages of rows (model rows): one message's string, or several strings joined by "\n".
    void copyRows(QList<int> rows);
    // The rows a context menu at clickedRow acts on: the clicked row, the whole selection when the clicked row
    // is selected, the selection when no row was clicked (-1). Sorted.
    QList<int> contextRows(int clickedRow) const;

    void save();

    static constexpr int fontSize = 11;

protected:
    void showEvent(QShowEvent* event) override;

private:
    void addSource(const ActivityPtr& activity);
    void sourceChosen(int index);
    void applyFont();
    void showContextMenu(const QPoint& position);
    void writeShownMessages(const QString& path);
    void chooseSavePath(const QString& proposedName, std::function<void(std::optional<QString>)> done);
    void scheduleScrollToEnd();
    bool isAtEnd() const;
    void updatePlaceholder();
    QList<int> selectedRows() const;

    Transcript& m_transcript;
    Defaults& m_defaults;
    Alerter& m_alerter;
    TranscriptModel* m_model = nullptr;
    QComboBox* m_sourcesBox = nullptr;
    QListView* m_listView = nullptr;
    QLabel* m_placeholder = nullptr;
    QAction* m_copyAction = nullptr;
    QAction* m_saveAction = nullptr;
    QAction* m_clearAction = nullptr;
    SavePathChooser m_savePathChooser;
    // Output floods in far faster than anyone reads: at most one scroll per event-loop turn.
    bool m_scrollPending = false;
    bool m_followEnd = false;
};
