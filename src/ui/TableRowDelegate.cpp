#include "ui/TableRowDelegate.h"

#include <QApplication>
#include <QPainter>
#include <QStyle>

TableRowDelegate::TableRowDelegate(QObject* parent)
    : QStyledItemDelegate(parent)
{}

void TableRowDelegate::setLineStyle(Qt::PenStyle style)
{
    m_lineStyle = style;
}

void TableRowDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    QStyledItemDelegate::paint(painter, option, index);
    paintRowLine(painter, option);
}

void TableRowDelegate::paintRowLine(QPainter* painter, const QStyleOptionViewItem& option) const
{
    if (m_lineStyle == Qt::NoPen) {
        return;
    }
    // The colour of Qt's own grid, so that switching between the styles changes only the directions.
    const QWidget* widget = option.widget;
    const QStyle* style = widget ? widget->style() : QApplication::style();
    const int gridHint = style->styleHint(QStyle::SH_Table_GridLineColor, &option, widget);
    const QColor colour = QColor::fromRgba(static_cast<QRgb>(gridHint));
    painter->save();
    painter->setPen(QPen(colour, 0, m_lineStyle));
    painter->drawLine(option.rect.bottomLeft(), option.rect.bottomRight());
    painter->restore();
}
