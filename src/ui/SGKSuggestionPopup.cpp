#include "ui/SGKSuggestionPopup.h"

#include "search/SGKSuggestionList.h"
#include "ui/SGKSuggestionRowDelegate.h"

#include <QEvent>
#include <QListView>
#include <QMouseEvent>
#include <QVBoxLayout>

namespace {

// A window of the tooltip type follows its parent window, stays above it and is never activated, so the focus and
// the keyboard stay with the field (a popup window would grab them).
constexpr Qt::WindowFlags popupFlags = Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowDoesNotAcceptFocus;

} // namespace

SGKSuggestionPopup::SGKSuggestionPopup(SGKSuggestionList* list, QWidget* parent)
    : QWidget(parent, popupFlags)
    , m_list(list)
    , m_view(new QListView(this))
{
    setObjectName(QStringLiteral("suggestionPopup"));
    setAttribute(Qt::WA_ShowWithoutActivating);
    setFocusPolicy(Qt::NoFocus);

    m_view->setObjectName(QStringLiteral("suggestionListView"));
    m_view->setModel(list);
    m_view->setItemDelegate(new SGKSuggestionRowDelegate(m_view));
    m_view->setFocusPolicy(Qt::NoFocus);
    // The list model keeps the selection, so the view's own would only disagree with it.
    m_view->setSelectionMode(QAbstractItemView::NoSelection);
    m_view->setMouseTracking(true);
    m_view->viewport()->setMouseTracking(true);
    m_view->setUniformItemSizes(false);
    m_view->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_view->setFrameShape(QFrame::StyledPanel);
    m_view->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_view);

    m_view->viewport()->installEventFilter(this);
    connect(m_view, &QAbstractItemView::clicked, this,
            [this](const QModelIndex& index) { m_list->chooseRow(index.row()); });
    connect(list, &SGKSuggestionList::selectedRowChanged, this, &SGKSuggestionPopup::showSelectedRow);
    connect(list, &QAbstractItemModel::modelReset, this, &SGKSuggestionPopup::listChanged);
    connect(list, &QAbstractItemModel::rowsInserted, this, &SGKSuggestionPopup::listChanged);
    connect(list, &QAbstractItemModel::rowsRemoved, this, &SGKSuggestionPopup::listChanged);
    connect(list, &QAbstractItemModel::layoutChanged, this, &SGKSuggestionPopup::listChanged);
}

QPoint SGKSuggestionPopup::anchorFor(const QWidget* field)
{
    return field->mapToGlobal(QPoint(0, field->height())) + QPoint(fieldOffset, fieldOffset);
}

void SGKSuggestionPopup::present(QWidget* field)
{
    attach(field);
    if (m_list->rowCount() == 0) {
        hide();
        return;
    }
    updateGeometryForField();
    show();
}

void SGKSuggestionPopup::dismiss()
{
    hide();
}

void SGKSuggestionPopup::attach(QWidget* field)
{
    if (m_field == field && m_fieldWindow == field->window() && parentWidget() == field->window()) {
        return;
    }
    if (m_field) {
        m_field->removeEventFilter(this);
    }
    if (m_fieldWindow) {
        m_fieldWindow->removeEventFilter(this);
    }
    m_field = field;
    m_fieldWindow = field->window();
    // A child window of the field's window: it moves, minimises and closes with it.
    if (parentWidget() != m_fieldWindow) {
        setParent(m_fieldWindow, popupFlags);
    }
    m_field->installEventFilter(this);
    m_fieldWindow->installEventFilter(this);
}

void SGKSuggestionPopup::updateGeometryForField()
{
    if (!m_field) {
        return;
    }
    const int rows = std::min(m_list->rowCount(), maximumVisibleRows);
    int height = 2 * m_view->frameWidth();
    for (int row = 0; row < rows; ++row) {
        height += m_view->sizeHintForRow(row);
    }
    setGeometry(QRect(anchorFor(m_field), QSize(m_field->width(), height)));
}

void SGKSuggestionPopup::listChanged()
{
    if (!isVisible()) {
        return;
    }
    if (m_list->rowCount() == 0) {
        hide();
        return;
    }
    updateGeometryForField();
}

void SGKSuggestionPopup::showSelectedRow(int row)
{
    if (row >= 0) {
        m_view->scrollTo(m_list->index(row));
    }
}

bool SGKSuggestionPopup::eventFilter(QObject* watched, QEvent* event)
{
    // Every move, not only entering a new row: the pointer resting on a heading and then moving within the row
    // below must still select that row.
    if (watched == m_view->viewport() && event->type() == QEvent::MouseMove) {
        const QModelIndex index = m_view->indexAt(static_cast<QMouseEvent*>(event)->position().toPoint());
        if (index.isValid() && index.row() != m_list->selectedRow()) {
            m_list->selectRow(index.row());
        }
        return false;
    }
    if (isVisible() && (watched == m_field || watched == m_fieldWindow)) {
        switch (event->type()) {
        case QEvent::Move:
        case QEvent::Resize:
            updateGeometryForField();
            break;
        case QEvent::Hide:
            hide();
            break;
        default:
            break;
        }
    }
    return QWidget::eventFilter(watched, event);
}
