#include "ui/PackageStatusDelegate.h"

#include "ui/PackageTableModel.h"

#include <QApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QStyle>
#include <QStyleOptionButton>

namespace {

constexpr int margin = 4;

QStyleOptionButton buttonOption(const QStyleOptionViewItem& option, const QModelIndex& index)
{
    QStyleOptionButton button;
    button.text = index.data(Qt::DisplayRole).toString();
    button.fontMetrics = option.fontMetrics;
    button.palette = option.palette;
    button.direction = option.direction;
    button.state = QStyle::State_Enabled | (option.state & QStyle::State_MouseOver);
    return button;
}

const QStyle* styleOf(const QStyleOptionViewItem& option)
{
    return option.widget ? option.widget->style() : QApplication::style();
}

} // namespace

PackageStatusDelegate::PackageStatusDelegate(QObject* parent)
    : TableRowDelegate(parent)
{}

QRect PackageStatusDelegate::buttonRect(const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    if (index.data(PackageTableModel::ButtonIdentifierRole).toString().isEmpty()) {
        return {};
    }
    const QStyleOptionButton button = buttonOption(option, index);
    const QSize text = option.fontMetrics.size(Qt::TextShowMnemonic, button.text);
    QSize size = styleOf(option)->sizeFromContents(QStyle::CT_PushButton, &button, text, option.widget);
    size = size.boundedTo(option.rect.size() - QSize(2 * margin, 0));
    QRect rect(QPoint(0, 0), size);
    rect.moveCenter(option.rect.center());
    rect.moveLeft(option.rect.left() + margin);
    return QStyle::visualRect(option.direction, option.rect, rect);
}

void PackageStatusDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    const QRect rect = buttonRect(option, index);
    if (rect.isEmpty()) {
        // Busy and installed rows read as quiet text, not as something to click.
        QStyleOptionViewItem text = option;
        initStyleOption(&text, index);
        text.palette.setBrush(QPalette::Text, option.palette.brush(QPalette::Disabled, QPalette::Text));
        styleOf(option)->drawControl(QStyle::CE_ItemViewItem, &text, painter, option.widget);
    } else {
        // The cell's own background (selection, alternating rows) first, then the button on top.
        QStyleOptionViewItem background = option;
        initStyleOption(&background, index);
        background.text.clear();
        styleOf(option)->drawControl(QStyle::CE_ItemViewItem, &background, painter, option.widget);
        QStyleOptionButton button = buttonOption(option, index);
        button.rect = rect;
        if (m_pressed.isValid() && m_pressed == index) {
            button.state |= QStyle::State_Sunken;
        } else {
            button.state |= QStyle::State_Raised;
        }
        styleOf(option)->drawControl(QStyle::CE_PushButton, &button, painter, option.widget);
    }
    paintRowLine(painter, option);
}

QSize PackageStatusDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    QSize hint = TableRowDelegate::sizeHint(option, index);
    if (index.data(PackageTableModel::ButtonIdentifierRole).toString().isEmpty()) {
        return hint;
    }
    const QStyleOptionButton button = buttonOption(option, index);
    const QSize text = option.fontMetrics.size(Qt::TextShowMnemonic, button.text);
    const QSize size = styleOf(option)->sizeFromContents(QStyle::CT_PushButton, &button, text, option.widget);
    return hint.expandedTo(size + QSize(2 * margin, 0));
}

bool PackageStatusDelegate::editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                                        const QModelIndex& index)
{
    const auto type = event->type();
    if (type != QEvent::MouseButtonPress && type != QEvent::MouseButtonRelease && type != QEvent::MouseButtonDblClick) {
        return TableRowDelegate::editorEvent(event, model, option, index);
    }
    const auto* mouse = static_cast<QMouseEvent*>(event);
    const QRect rect = buttonRect(option, index);
    const bool inside = mouse->button() == Qt::LeftButton && rect.contains(mouse->position().toPoint());
    if (type == QEvent::MouseButtonPress || type == QEvent::MouseButtonDblClick) {
        if (!inside) {
            return false;
        }
        // Remembered as the press saw it: a merge between press and release may have changed what the row offers.
        m_pressed = index;
        m_pressedIdentifier = index.data(PackageTableModel::ButtonIdentifierRole).toString();
        return true; // the press belongs to the button, not to the selection
    }
    const bool wasPressed = m_pressed.isValid() && m_pressed == index;
    const QString identifier = m_pressedIdentifier;
    m_pressed = QPersistentModelIndex();
    m_pressedIdentifier.clear();
    if (!wasPressed || !inside) {
        return false;
    }
    Q_EMIT buttonClicked(index, identifier);
    return true;
}
