// Paints a table cell as usual and, when the table's style asks for horizontal lines only, the line beneath its
// row: Qt's own grid cannot draw one direction without the other.
#pragma once

#include <QStyledItemDelegate>

class TableRowDelegate : public QStyledItemDelegate {
    Q_OBJECT

public:
    explicit TableRowDelegate(QObject* parent = nullptr);

    // Qt::NoPen draws no line.
    Qt::PenStyle lineStyle() const { return m_lineStyle; }
    void setLineStyle(Qt::PenStyle style);

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;

protected:
    // Draws the line beneath the cell, if any; subclasses that paint cells themselves call it after.
    void paintRowLine(QPainter* painter, const QStyleOptionViewItem& option) const;

private:
    Qt::PenStyle m_lineStyle = Qt::NoPen;
};
