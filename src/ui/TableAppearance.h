// How the preferences "TableColumnSizing" and "TableStyle" look on a QTableView: the stored integers read as
// choices, and those choices applied with the nearest behaviour Qt's header and view offer.
//
// Column sizing (the header decides how the columns share the width the table gets):
//   none                 every column keeps its width (Interactive), nothing stretches;
//   uniform              every column stretches by the same share (Stretch on all);
//   sequential           the last column takes up the change (stretchLastSection): Qt has no cascade to the
//                        columns before it once the last one is at its minimum;
//   reverseSequential    the first visible column takes up the change (Stretch on it), the mirror of the above;
//   firstColumnOnly      the first visible column stretches (Stretch on it), the same as reverseSequential in Qt;
//   lastColumnOnly       the last visible column stretches (stretchLastSection), the same as sequential in Qt.
// Columns the table fixed in width (QHeaderView::Fixed, e.g. an icon column) are left alone and never count as
// first or last.
//
// Style: alternating row backgrounds map to setAlternatingRowColors. Qt's own grid only draws both directions, so
// it is used for "vertical and horizontal solid"; horizontal-only lines, solid or dashed, are drawn beneath each
// row by TableRowDelegate, which apply() installs as the view's delegate when the view has none of that kind.
#pragma once

#include <QtGlobal>

class Defaults;
class QTableView;

class TableAppearance {
public:
    enum class ColumnSizing { none, uniform, sequential, reverseSequential, firstColumnOnly, lastColumnOnly };
    enum class GridLines { none, horizontalSolid, horizontalDashed, verticalAndHorizontalSolid };

    struct Style {
        bool alternatingRows = true;
        GridLines gridLines = GridLines::none;
        bool operator==(const Style&) const = default;
    };

    // Values without a meaning of their own (2 and 5 among them) give none.
    static ColumnSizing columnSizing(qint64 storedValue);
    // Values without a meaning of their own (1 and 5 among them) give alternating rows without grid.
    static Style style(qint64 storedValue);

    static void apply(QTableView* view, ColumnSizing sizing);
    static void apply(QTableView* view, const Style& style);
    // Both, as the preferences say right now.
    static void apply(QTableView* view, const Defaults& defaults);
};
