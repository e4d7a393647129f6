// Draws the status cell of a package row: an inline push button ("Install", "Upgrade") when the row offers one,
// its state in plain text otherwise, and reports a click that is released inside the button.
#pragma once

#include "ui/TableRowDelegate.h"

#include <QPersistentModelIndex>

class PackageStatusDelegate : public TableRowDelegate {
    Q_OBJECT

public:
    explicit PackageStatusDelegate(QObject* parent = nullptr);

    // Where the button of index sits within a cell drawn with option; empty for a cell without a button.
    QRect buttonRect(const QStyleOptionViewItem& option, const QModelIndex& index) const;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

Q_SIGNALS:
    // identifier: "InstallTableButton" or "UpgradeTableButton", as the row offered when the click began.
    void buttonClicked(const QModelIndex& index, const QString& identifier);

protected:
    bool editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                     const QModelIndex& index) override;

private:
    QPersistentModelIndex m_pressed;
    QString m_pressedIdentifier;
};
