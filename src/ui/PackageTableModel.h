// The rows of the Apps or Scripts table: the arranged records of one ArrayController, one column per attribute
// people read, and a status column that says which inline action (if any) a row offers right now.
#pragma once

#include "operations/PackageOperation.h"

#include <QAbstractTableModel>
#include <QHash>
#include <QIcon>
#include <QList>
#include <QPointer>

class ArrayController;
class ManagedObject;
class Package;

class PackageTableModel : public QAbstractTableModel {
    Q_OBJECT

public:
    enum class Column { icon, name, token, kind, version, repository, description, hierarchy, license, status };

    enum Role {
        RecordRole = Qt::UserRole + 1, // ManagedObject*
        StatusRole,                    // int of Status
        ButtonIdentifierRole,          // "InstallTableButton", "UpgradeTableButton", or nothing without a button
    };

    // What the status column shows: a button for what can start right now, or the state the record is in.
    enum class Status { install, upgrade, busy, installed };

    PackageTableModel(ArrayController& controller, PackageOperation::Persona persona, QObject* parent = nullptr);

    PackageOperation::Persona persona() const { return m_persona; }
    // The string table of the headers and status texts: "AppsTableViewController" or "ScriptsTableViewController".
    const char* translationContext() const;

    const QList<Column>& columns() const { return m_columns; }
    Column columnAt(int column) const { return m_columns.at(column); }
    // -1 when this persona has no such column.
    int columnOf(Column column) const { return int(m_columns.indexOf(column)); }
    // The key a column sorts by; empty for none.
    static QString sortKey(Column column);

    Package* recordAt(int row) const;
    // -1 when object is not arranged.
    int rowOf(const ManagedObject* object) const;

    static Status statusOf(const Package& record);
    static QString buttonIdentifier(Status status);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

private:
    QVariant displayValue(const Package& record, Column column) const;
    QIcon iconOf(const Package& record) const;
    // What a cell shows beside its text: the icon column's picture, a script's hierarchy.
    QIcon decorationOf(const Package& record, Column column) const;
    // The named picture, drawn once however many rows show it; a null icon for an empty name.
    QIcon assetIcon(const QString& name) const;
    QString localized(const char* text) const;
    void objectValueChanged(ManagedObject* object, const QString& key);

    QPointer<ArrayController> m_controller;
    PackageOperation::Persona m_persona;
    QList<Column> m_columns;
    // Built on first use after each reset: a value change of one of thousands of objects must not scan them all.
    mutable QHash<const ManagedObject*, int> m_rows;
    mutable bool m_rowsStale = true;
    mutable QHash<QString, QIcon> m_assetIcons;
};
