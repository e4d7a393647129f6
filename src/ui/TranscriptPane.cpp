#include "ui/TranscriptPane.h"

#include "activities/ActivityCenter.h"
#include "activities/Notifications.h"
#include "activities/Transcript.h"
#include "foundation/Alerter.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "ui/TranscriptModel.h"

#include <QAction>
#include <QClipboard>
#include <QComboBox>
#include <QFileDialog>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QItemSelectionModel>
#include <QLabel>
#include <QListView>
#include <QMenu>
#include <QPointer>
#include <QScrollBar>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>

namespace {

// The fixed entries above the activities: showing everything, and a separator.
constexpr int firstActivityIndex = 2;

void copyToClipboard(const QStringList& strings)
{
    QClipboard* clipboard = QGuiApplication::clipboard();
    clipboard->clear();
    clipboard->setText(strings.join(u'\n'));
}

} // namespace

TranscriptPane::TranscriptPane(Transcript& transcript, ActivityCenter& activityCenter, Defaults& defaults,
                               Alerter& alerter, QWidget* parent)
    : QWidget(parent)
    , m_transcript(transcript)
    , m_defaults(defaults)
    , m_alerter(alerter)
    , m_model(new TranscriptModel(transcript, this))
    , m_sourcesBox(new QComboBox(this))
    , m_listView(new QListView(this))
{
    m_sourcesBox->setObjectName(QStringLiteral("transcriptSources"));
    m_sourcesBox->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    m_sourcesBox->addItem(tr("All Activities"));
    m_sourcesBox->insertSeparator(1);
    for (const ActivityPtr& activity : activityCenter.activities()) {
        addSource(activity);
    }
    connect(&Notifications::instance(), &Notifications::activityCenterPostedActivity, this, &TranscriptPane::addSource);
    connect(m_sourcesBox, &QComboBox::currentIndexChanged, this, &TranscriptPane::sourceChosen);

    m_listView->setObjectName(QStringLiteral("transcriptList"));
    m_listView->setModel(m_model);
    // Every row is one line of text: the view then measures one row instead of all of them.
    m_listView->setUniformItemSizes(true);
    m_listView->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_listView->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_listView->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_listView, &QWidget::customContextMenuRequested, this, &TranscriptPane::showContextMenu);

    m_placeholder = new QLabel(tr("No Output"), m_listView->viewport());
    m_placeholder->setObjectName(QStringLiteral("transcriptPlaceholder"));
    m_placeholder->setEnabled(false);
    m_placeholder->setAttribute(Qt::WA_TransparentForMouseEvents);
    auto* placeholderLayout = new QVBoxLayout(m_listView->viewport());
    placeholderLayout->addWidget(m_placeholder, 0, Qt::AlignCenter);

    m_copyAction = new QAction(tr("Copy"), this);
    m_copyAction->setShortcut(QKeySequence::Copy);
    m_copyAction->setShortcutContext(Qt::WidgetShortcut);
    connect(m_copyAction, &QAction::triggered, this, [this] { copyRows(selectedRows()); });
    m_listView->addAction(m_copyAction);

    m_saveAction = new QAction(tr("Save\u2026"), this);
    m_saveAction->setToolTip(tr("Save the lines shown to a file"));
    connect(m_saveAction, &QAction::triggered, this, &TranscriptPane::save);

    m_clearAction = new QAction(tr("Clear"), this);
    m_clearAction->setToolTip(tr("Remove every line from the transcript"));
    m_clearAction->setEnabled(!m_transcript.isEmpty());
    connect(m_clearAction, &QAction::triggered, &m_transcript, &Transcript::clear);
    connect(&m_transcript, &Transcript::isEmptyChanged, m_clearAction,
            [this](bool isEmpty) { m_clearAction->setEnabled(!isEmpty); });

    auto* bar = new QHBoxLayout;
    bar->addWidget(m_sourcesBox);
    bar->addStretch(1);
    for (QAction* action : {m_saveAction, m_clearAction}) {
        auto* button = new QToolButton(this);
        button->setDefaultAction(action);
        bar->addWidget(button);
    }
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(bar);
    layout->addWidget(m_listView, 1);

    // Decided before the view moves: rows that land while it shows the end keep it there.
    connect(m_model, &QAbstractItemModel::rowsAboutToBeInserted, this,
            [this] { m_followEnd = m_scrollPending || isAtEnd(); });
    connect(m_model, &QAbstractItemModel::rowsInserted, this, [this] {
        if (m_followEnd) {
            scheduleScrollToEnd();
        }
        updatePlaceholder();
    });
    connect(m_model, &QAbstractItemModel::modelReset, this, &TranscriptPane::updatePlaceholder);
    updatePlaceholder();

    m_defaults.observe(PreferenceKeys::TranscriptFontStyle, this, [this] { applyFont(); });
    applyFont();

    scheduleScrollToEnd();
}

void TranscriptPane::setSavePathChooser(SavePathChooser chooser)
{
    m_savePathChooser = std::move(chooser);
}

void TranscriptPane::addSource(const ActivityPtr& activity)
{
    if (!activity) {
        return;
    }
    // Newest first, right below the fixed entries.
    m_sourcesBox->insertItem(firstActivityIndex, activity->title(), QVariant::fromValue(activity));
}

void TranscriptPane::sourceChosen(int index)
{
    const ActivityPtr activity = m_sourcesBox->itemData(index).value<ActivityPtr>();
    // An insertion above the current item renumbers it without changing the choice.
    if (activity == m_model->activityFilter()) {
        return;
    }
    m_model->setActivityFilter(activity);
    m_listView->scrollToBottom();
}

void TranscriptPane::applyFont()
{
    const bool regular = m_defaults.integerValue(PreferenceKeys::TranscriptFontStyle) == 1;
    QFont font = QFontDatabase::systemFont(regular ? QFontDatabase::GeneralFont : QFontDatabase::FixedFont);
    font.setPointSize(fontSize);
    if (!regular) {
        font.setWeight(QFont::Normal);
    }
    m_listView->setFont(font);
}

QList<int> TranscriptPane::selectedRows() const
{
    QList<int> rows;
    const QModelIndexList selected = m_listView->selectionModel()->selectedRows();
    rows.reserve(selected.size());
    for (const QModelIndex& index : selected) {
        rows.append(index.row());
    }
    std::sort(rows.begin(), rows.end());
    return rows;
}

QList<int> TranscriptPane::contextRows(int clickedRow) const
{
    if (clickedRow < 0 || clickedRow >= m_model->rowCount()) {
        return selectedRows();
    }
    if (m_listView->selectionModel()->isRowSelected(clickedRow, QModelIndex())) {
        return selectedRows();
    }
    return {clickedRow};
}

void TranscriptPane::copyRows(QList<int> rows)
{
    std::sort(rows.begin(), rows.end());
    QStringList strings;
    strings.reserve(rows.size());
    for (const int row : std::as_const(rows)) {
        if (row >= 0 && row < m_model->rowCount()) {
            strings.append(m_model->message(row).string());
        }
    }
    if (!strings.isEmpty()) {
        copyToClipboard(strings);
    }
}

void TranscriptPane::showContextMenu(const QPoint& position)
{
    const QModelIndex clicked = m_listView->indexAt(position);
    const QList<int> rows = contextRows(clicked.isValid() ? clicked.row() : -1);

    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    QAction* copy = menu->addAction(tr("Copy"));
    copy->setEnabled(!rows.isEmpty());
    // The rows are taken now: the lines under the pointer when the menu opened are the ones meant.
    QList<TranscriptMessage> messages;
    for (const int row : rows) {
        messages.append(m_model->message(row));
    }
    connect(copy, &QAction::triggered, this, [messages] {
        QStringList strings;
        for (const TranscriptMessage& message : messages) {
            strings.append(message.string());
        }
        if (!strings.isEmpty()) {
            copyToClipboard(strings);
        }
    });
    menu->addSeparator();
    menu->addAction(m_saveAction);
    menu->addAction(m_clearAction);
    menu->popup(m_listView->viewport()->mapToGlobal(position));
}

void TranscriptPane::save()
{
    const QString proposedName = QStringLiteral("transcript.log");
    QPointer<TranscriptPane> self(this);
    auto done = [self](std::optional<QString> path) {
        if (self && path) {
            self->writeShownMessages(*path);
        }
    };
    if (m_savePathChooser) {
        m_savePathChooser(proposedName, std::move(done));
    } else {
        chooseSavePath(proposedName, std::move(done));
    }
}

void TranscriptPane::chooseSavePath(const QString& proposedName, std::function<void(std::optional<QString>)> done)
{
    auto* dialog = new QFileDialog(window(), tr("Save Transcript"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setFileMode(QFileDialog::AnyFile);
    dialog->setNameFilters({tr("Log files (*.log)"), tr("Plain text, UTF-8 (*.txt)")});
    dialog->setDefaultSuffix(QStringLiteral("log"));
    dialog->selectFile(proposedName);
    dialog->setWindowModality(Qt::WindowModal);
    connect(dialog, &QDialog::finished, this, [dialog, done = std::move(done)](int result) {
        const QStringList files = dialog->selectedFiles();
        if (result == QDialog::Accepted && !files.isEmpty()) {
            done(files.first());
        } else {
            done(std::nullopt);
        }
    });
    dialog->open();
}

void TranscriptPane::writeShownMessages(const QString& path)
{
    const Result<void> saved = Transcript::save(m_model->shownMessages(), path);
    if (saved.ok()) {
        return;
    }
    Alert alert;
    alert.style = Alert::Style::Warning;
    alert.message = tr("Unable to save the transcript");
    alert.informativeText = saved.error().description();
    alert.buttons = {tr("OK")};
    m_alerter.present(alert, [](AlertResponse) {});
}

void TranscriptPane::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    scheduleScrollToEnd();
}

void TranscriptPane::scheduleScrollToEnd()
{
    if (m_scrollPending) {
        return;
    }
    m_scrollPending = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_scrollPending = false;
            m_listView->scrollToBottom();
        },
        Qt::QueuedConnection);
}

bool TranscriptPane::isAtEnd() const
{
    const QScrollBar* bar = m_listView->verticalScrollBar();
    return bar->value() >= bar->maximum();
}

void TranscriptPane::updatePlaceholder()
{
    m_placeholder->setVisible(m_model->rowCount() == 0);
}
