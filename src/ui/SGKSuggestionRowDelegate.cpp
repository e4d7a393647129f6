#include "ui/SGKSuggestionRowDelegate.h"

#include "search/SGKSuggestionList.h"
#include "ui/SGKSuggestionIcons.h"

#include <QPainter>
#include <QPainterPath>

namespace {

QFont groupFont(const QFont& base)
{
    QFont font = base;
    font.setBold(true);
    font.setPointSizeF(base.pointSizeF() * 0.85);
    return font;
}

QFont runFont(const QFont& base, const SGKTextAttributes& attributes)
{
    QFont font = base;
    font.setBold(attributes.bold);
    return font;
}

QColor textColor(const QStyleOptionViewItem& option, bool selected, bool secondary)
{
    if (selected) {
        return option.palette.color(QPalette::HighlightedText);
    }
    return option.palette.color(secondary ? QPalette::PlaceholderText : QPalette::Text);
}

} // namespace

QSize SGKSuggestionRowDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    if (index.data(SGKSuggestionList::SeparatorRole).toBool()) {
        return {0, separatorHeight};
    }
    if (index.data(SGKSuggestionList::GroupRole).toBool()) {
        return {0, QFontMetrics(groupFont(option.font)).height() + 8};
    }
    return {0, std::max(iconSize, option.fontMetrics.height()) + 8};
}

void SGKSuggestionRowDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                                     const QModelIndex& index) const
{
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    if (index.data(SGKSuggestionList::SeparatorRole).toBool()) {
        paintSeparator(painter, option);
    } else if (index.data(SGKSuggestionList::GroupRole).toBool()) {
        paintGroup(painter, option, index);
    } else {
        paintRow(painter, option, index);
    }
    painter->restore();
}

void SGKSuggestionRowDelegate::paintSeparator(QPainter* painter, const QStyleOptionViewItem& option)
{
    const int y = option.rect.center().y();
    painter->setPen(QPen(option.palette.color(QPalette::Mid), 0));
    painter->drawLine(option.rect.left() + horizontalMargin, y, option.rect.right() - horizontalMargin, y);
}

void SGKSuggestionRowDelegate::paintGroup(QPainter* painter, const QStyleOptionViewItem& option,
                                          const QModelIndex& index)
{
    painter->setFont(groupFont(option.font));
    painter->setPen(option.palette.color(QPalette::PlaceholderText));
    const QRect textRect = option.rect.adjusted(horizontalMargin, 0, -horizontalMargin, 0);
    painter->drawText(textRect, Qt::AlignLeft | Qt::AlignVCenter, index.data(SGKSuggestionList::KeyRole).toString());
}

void SGKSuggestionRowDelegate::paintRow(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index)
{
    const bool selected = index.data(SGKSuggestionList::SelectedRole).toBool();
    const QRect rect = option.rect.adjusted(3, 1, -3, -1);
    if (selected) {
        QPainterPath highlight;
        highlight.addRoundedRect(rect, 4, 4);
        painter->fillPath(highlight, option.palette.color(QPalette::Highlight));
    }

    int left = rect.left() + horizontalMargin - 3;
    int right = rect.right() - horizontalMargin + 3;
    const int middle = rect.center().y();
    const QIcon::Mode mode = selected ? QIcon::Selected : QIcon::Normal;

    // The checkmark column is kept even when empty, so labels and badges line up across rows.
    if (index.data(SGKSuggestionList::HasStateRole).toBool()) {
        const QIcon state = SGKSuggestionIcons::icon(index.data(SGKSuggestionList::StateImageNameRole).toString());
        const QRect stateRect(right - iconSize + 1, middle - iconSize / 2, iconSize, iconSize);
        if (!state.isNull()) {
            state.paint(painter, stateRect, Qt::AlignCenter, mode);
        }
        right = stateRect.left() - spacing;
    }

    const QString badge = index.data(SGKSuggestionList::BadgeRole).toString();
    if (!badge.isEmpty()) {
        QFont font = option.font;
        font.setPointSizeF(option.font.pointSizeF() * 0.85);
        const QFontMetrics metrics(font);
        const int width = metrics.horizontalAdvance(badge) + 10;
        const QRect badgeRect(right - width + 1, middle - metrics.height() / 2 - 1, width, metrics.height() + 2);
        QPainterPath capsule;
        capsule.addRoundedRect(badgeRect, badgeRect.height() / 2.0, badgeRect.height() / 2.0);
        painter->fillPath(capsule, option.palette.color(selected ? QPalette::HighlightedText : QPalette::Mid));
        painter->setFont(font);
        painter->setPen(option.palette.color(selected ? QPalette::Highlight : QPalette::Base));
        painter->drawText(badgeRect, Qt::AlignCenter, badge);
        right = badgeRect.left() - spacing;
    }

    const QIcon icon = SGKSuggestionIcons::icon(index.data(SGKSuggestionList::IconNameRole).toString());
    if (!icon.isNull()) {
        icon.paint(painter, QRect(left, middle - iconSize / 2, iconSize, iconSize), Qt::AlignCenter, mode);
    }
    left += iconSize + spacing;

    // The label is a few styled runs; whatever does not fit is elided at the end of the run that overflows.
    const auto* item = index.data(SGKSuggestionList::ItemRole).value<SGKSuggestionViewItem*>();
    const QList<SGKTextRun> runs = item ? item->attributedLabel() : QList<SGKTextRun>{{index.data().toString(), {}}};
    for (const SGKTextRun& run : runs) {
        if (left >= right) {
            break;
        }
        const QFont font = runFont(option.font, run.attributes);
        const QFontMetrics metrics(font);
        const QString text = metrics.elidedText(run.text, Qt::ElideRight, right - left);
        painter->setFont(font);
        painter->setPen(textColor(option, selected, run.attributes.secondary));
        painter->drawText(QRect(left, rect.top(), right - left, rect.height()), Qt::AlignLeft | Qt::AlignVCenter, text);
        left += metrics.horizontalAdvance(text);
    }
}
