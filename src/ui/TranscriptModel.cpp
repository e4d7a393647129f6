#include "ui/TranscriptModel.h"

#include <algorithm>

TranscriptModel::TranscriptModel(Transcript& transcript, QObject* parent)
    : QAbstractListModel(parent)
    , m_transcript(transcript)
{
    connect(&m_transcript, &Transcript::messagesAppended, this, &TranscriptModel::insertAppended);
    connect(&m_transcript, &Transcript::aboutToBeCleared, this, &TranscriptModel::beginResetModel);
    connect(&m_transcript, &Transcript::cleared, this, [this] {
        m_rows.clear();
        endResetModel();
    });
    rebuildRows();
}

QModelIndex TranscriptModel::index(int row, int column, const QModelIndex& parent) const
{
    if (row < 0 || std::size_t(row) >= m_rows.size() || column != 0 || parent.isValid()) {
        return {};
    }
    return createIndex(row, column);
}

int TranscriptModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

QVariant TranscriptModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) {
        return {};
    }
    const TranscriptMessage& shown = message(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return shown.string();
    case Qt::ToolTipRole:
        return shown.exportLine();
    case MessageRole:
        return QVariant::fromValue(shown);
    default:
        return {};
    }
}

QHash<int, QByteArray> TranscriptModel::roleNames() const
{
    QHash<int, QByteArray> names = QAbstractListModel::roleNames();
    names.insert(MessageRole, QByteArrayLiteral("message"));
    return names;
}

void TranscriptModel::setActivityFilter(ActivityPtr activity)
{
    if (activity == m_filter) {
        return;
    }
    beginResetModel();
    m_filter = std::move(activity);
    rebuildRows();
    endResetModel();
}

const TranscriptMessage& TranscriptModel::message(int row) const
{
    return m_transcript.messages().at(m_rows.at(std::size_t(row)));
}

QList<TranscriptMessage> TranscriptModel::shownMessages() const
{
    QList<TranscriptMessage> shown;
    shown.reserve(qsizetype(m_rows.size()));
    for (const int index : m_rows) {
        shown.append(m_transcript.messages().at(index));
    }
    return shown;
}

std::optional<TranscriptMessage> TranscriptModel::messageFromVariant(const QVariant& value)
{
    // qvariant_cast needs a default constructor, which a message deliberately lacks.
    if (value.metaType() != QMetaType::fromType<TranscriptMessage>()) {
        return std::nullopt;
    }
    return *static_cast<const TranscriptMessage*>(value.constData());
}

bool TranscriptModel::isShown(const TranscriptMessage& message) const
{
    return !m_filter || message.activity() == m_filter;
}

TranscriptMessage::Clock::time_point TranscriptModel::dateOfRow(std::size_t row) const
{
    return m_transcript.messages().at(m_rows[row]).date();
}

void TranscriptModel::rebuildRows()
{
    const QList<TranscriptMessage>& messages = m_transcript.messages();
    m_rows.clear();
    for (int i = 0; i < int(messages.size()); ++i) {
        if (isShown(messages.at(i))) {
            m_rows.push_back(i);
        }
    }
    std::stable_sort(m_rows.begin(), m_rows.end(),
                     [&messages](int a, int b) { return messages.at(a).date() < messages.at(b).date(); });
}

// Lines nearly always arrive in date order and go to the end in one block. Concurrent children can deliver a
// chunk whose lines are older than ones already shown; each run of such lines that lands between the same two
// rows is inserted as one block, so rows stay sorted without a reset.
void TranscriptModel::insertAppended(int first, int last)
{
    const QList<TranscriptMessage>& messages = m_transcript.messages();
    std::vector<int> run;
    std::size_t runPosition = 0;
    TranscriptMessage::Clock::time_point runLast;

    const auto flush = [&] {
        if (run.empty()) {
            return;
        }
        beginInsertRows(QModelIndex(), int(runPosition), int(runPosition + run.size()) - 1);
        m_rows.insert(m_rows.begin() + std::ptrdiff_t(runPosition), run.cbegin(), run.cend());
        endInsertRows();
        run.clear();
    };

    // Equal dates go after the rows already there, as a stable sort would place them.
    const auto positionOf = [this, &messages](TranscriptMessage::Clock::time_point date) {
        if (m_rows.empty() || date >= dateOfRow(m_rows.size() - 1)) {
            return m_rows.size();
        }
        const auto it = std::upper_bound(m_rows.cbegin(), m_rows.cend(), date,
                                         [&messages](auto d, int row) { return d < messages.at(row).date(); });
        return std::size_t(it - m_rows.cbegin());
    };

    for (int i = first; i <= last; ++i) {
        const TranscriptMessage& appended = messages.at(i);
        if (!isShown(appended)) {
            continue;
        }
        const auto date = appended.date();
        if (!run.empty() && date >= runLast && positionOf(date) == runPosition) {
            run.push_back(i);
            runLast = date;
            continue;
        }
        // The run goes in first: where this line belongs depends on it.
        flush();
        run.push_back(i);
        runPosition = positionOf(date);
        runLast = date;
    }
    flush();
}
