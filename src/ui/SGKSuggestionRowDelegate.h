// Draws the rows of the suggestion popup: icon, the styled label, a trailing badge and the state checkmark;
// separators as a hairline and group headings as small dimmed titles.
#pragma once

#include <QStyledItemDelegate>

class SGKSuggestionRowDelegate : public QStyledItemDelegate {
    Q_OBJECT

public:
    static constexpr int iconSize = 16;
    static constexpr int horizontalMargin = 8;
    static constexpr int spacing = 6;
    static constexpr int separatorHeight = 9;

    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

private:
    static void paintSeparator(QPainter* painter, const QStyleOptionViewItem& option);
    static void paintGroup(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index);
    static void paintRow(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index);
};
