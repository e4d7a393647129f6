// The sheet that adds a repository: one owner/name field, Add only enabled for a name brew accepts, and adding
// hands the name to the repository operations.
#pragma once

#include <QDialog>

class QLineEdit;
class QPushButton;
class Repositories;

class AddRepositorySheet : public QDialog {
    Q_OBJECT

public:
    // Modal to parent's window, as a sheet is.
    explicit AddRepositorySheet(Repositories& repositories, QWidget* parent = nullptr);

    // The field's text without surrounding blanks, which a pasted name often carries.
    QString repositoryName() const;

    QLineEdit* nameField() const { return m_nameField; }
    QPushButton* addButton() const { return m_addButton; }
    QPushButton* cancelButton() const { return m_cancelButton; }

    void accept() override;

private:
    void updateAddButton();

    Repositories& m_repositories;
    QLineEdit* m_nameField;
    QPushButton* m_addButton;
    QPushButton* m_cancelButton;
};
