// The transcript as a list model: one row per message shown (all, or only one activity's), oldest first. Follows
// the transcript incrementally so that a command printing thousands of lines a second stays cheap to show.
#pragma once

#include "activities/Activity.h"
#include "activities/Transcript.h"
#include "activities/TranscriptMessage.h"

#include <QAbstractListModel>
#include <optional>
#include <vector>

class TranscriptModel : public QAbstractListModel {
    Q_OBJECT

public:
    enum Role {
        // The TranscriptMessage itself; read it back with messageFromVariant().
        MessageRole = Qt::UserRole + 1,
    };

    explicit TranscriptModel(Transcript& transcript, QObject* parent = nullptr);

    // The list view asks for the index of every row each time it lays out: the check stays inline here.
    QModelIndex index(int row, int column = 0, const QModelIndex& parent = QModelIndex()) const override;
    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QHash<int, QByteArray> roleNames() const override;

    // Shows only the messages of activity; null shows every message.
    void setActivityFilter(ActivityPtr activity);
    const ActivityPtr& activityFilter() const { return m_filter; }

    // row must be valid.
    const TranscriptMessage& message(int row) const;
    // The rows' messages in row order: what is saved.
    QList<TranscriptMessage> shownMessages() const;

    static std::optional<TranscriptMessage> messageFromVariant(const QVariant& value);

private:
    bool isShown(const TranscriptMessage& message) const;
    TranscriptMessage::Clock::time_point dateOfRow(std::size_t row) const;
    void rebuildRows();
    void insertAppended(int first, int last);

    Transcript& m_transcript;
    ActivityPtr m_filter;
    // Indices into the transcript's messages, kept sorted by date; equal dates keep their order of arrival.
    std::vector<int> m_rows;
};
