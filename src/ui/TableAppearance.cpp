#include "ui/TableAppearance.h"

#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "ui/TableRowDelegate.h"

#include <QHeaderView>
#include <QTableView>

namespace {

// The sections that take part in sizing, in the order people see them.
QList<int> sizableSections(const QHeaderView* header)
{
    QList<int> sections;
    for (int visual = 0; visual < header->count(); ++visual) {
        const int logical = header->logicalIndex(visual);
        if (!header->isSectionHidden(logical) && header->sectionResizeMode(logical) != QHeaderView::Fixed) {
            sections.append(logical);
        }
    }
    return sections;
}

QList<TableRowDelegate*> rowDelegates(QTableView* view)
{
    QList<TableRowDelegate*> delegates;
    auto* common = qobject_cast<TableRowDelegate*>(view->itemDelegate());
    if (!common) {
        common = new TableRowDelegate(view);
        view->setItemDelegate(common);
    }
    delegates.append(common);
    const int columns = view->model() ? view->model()->columnCount() : 0;
    for (int column = 0; column < columns; ++column) {
        if (auto* own = qobject_cast<TableRowDelegate*>(view->itemDelegateForColumn(column))) {
            delegates.append(own);
        }
    }
    return delegates;
}

} // namespace

TableAppearance::ColumnSizing TableAppearance::columnSizing(qint64 storedValue)
{
    switch (storedValue) {
    case 1:
        return ColumnSizing::uniform;
    case 3:
        return ColumnSizing::sequential;
    case 4:
        return ColumnSizing::reverseSequential;
    case 6:
        return ColumnSizing::firstColumnOnly;
    case 7:
        return ColumnSizing::lastColumnOnly;
    default:
        return ColumnSizing::none;
    }
}

TableAppearance::Style TableAppearance::style(qint64 storedValue)
{
    switch (storedValue) {
    case 0:
        return {true, GridLines::none};
    case 2:
        return {false, GridLines::horizontalSolid};
    case 3:
        return {false, GridLines::horizontalDashed};
    case 4:
        return {false, GridLines::verticalAndHorizontalSolid};
    case 6:
        return {false, GridLines::none};
    default:
        return {true, GridLines::none};
    }
}

void TableAppearance::apply(QTableView* view, ColumnSizing sizing)
{
    if (!view) {
        return;
    }
    QHeaderView* header = view->horizontalHeader();
    const QList<int> sections = sizableSections(header);
    for (const int section : sections) {
        header->setSectionResizeMode(section, QHeaderView::Interactive);
    }
    header->setStretchLastSection(false);
    switch (sizing) {
    case ColumnSizing::none:
        break;
    case ColumnSizing::uniform:
        for (const int section : sections) {
            header->setSectionResizeMode(section, QHeaderView::Stretch);
        }
        break;
    case ColumnSizing::sequential:
    case ColumnSizing::lastColumnOnly:
        header->setStretchLastSection(true);
        break;
    case ColumnSizing::reverseSequential:
    case ColumnSizing::firstColumnOnly:
        if (!sections.isEmpty()) {
            header->setSectionResizeMode(sections.first(), QHeaderView::Stretch);
        }
        break;
    }
}

void TableAppearance::apply(QTableView* view, const Style& style)
{
    if (!view) {
        return;
    }
    view->setAlternatingRowColors(style.alternatingRows);
    view->setShowGrid(style.gridLines == GridLines::verticalAndHorizontalSolid);
    Qt::PenStyle lines = Qt::NoPen;
    if (style.gridLines == GridLines::horizontalSolid) {
        lines = Qt::SolidLine;
    } else if (style.gridLines == GridLines::horizontalDashed) {
        lines = Qt::DashLine;
    }
    for (TableRowDelegate* delegate : rowDelegates(view)) {
        delegate->setLineStyle(lines);
    }
    view->viewport()->update();
}

void TableAppearance::apply(QTableView* view, const Defaults& defaults)
{
    apply(view, columnSizing(defaults.integerValue(PreferenceKeys::TableColumnSizing)));
    apply(view, style(defaults.integerValue(PreferenceKeys::TableStyle)));
}
