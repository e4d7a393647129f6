#include "ui/PasswordDialog.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

PasswordDialog::PasswordDialog(QWidget* parent)
    : m_parent(parent)
{}

void PasswordDialog::setParentWidget(QWidget* parent)
{
    m_parent = parent;
}

void PasswordDialog::askPassword(std::function<void(std::optional<QString> password)> done)
{
    auto* dialog = new QDialog(m_parent);
    dialog->setObjectName(QStringLiteral("passwordDialog"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowModality(Qt::ApplicationModal);

    auto* message = new QLabel(tr("Privacy & Security"), dialog);
    QFont bold = message->font();
    bold.setBold(true);
    message->setFont(bold);
    auto* informative = new QLabel(tr("Insert the administrator password to complete the process."), dialog);
    informative->setWordWrap(true);

    auto* field = new QLineEdit(dialog);
    field->setObjectName(QStringLiteral("passwordField"));
    field->setEchoMode(QLineEdit::Password);
    field->setPlaceholderText(tr("Password"));
    field->setFixedSize(228, 22);

    auto* buttons = new QDialogButtonBox(dialog);
    QPushButton* continueButton = buttons->addButton(tr("Continue"), QDialogButtonBox::AcceptRole);
    buttons->addButton(tr("Cancel"), QDialogButtonBox::RejectRole);
    continueButton->setDefault(true);
    QObject::connect(buttons, &QDialogButtonBox::accepted, dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);

    auto* layout = new QVBoxLayout(dialog);
    layout->addWidget(message);
    layout->addWidget(informative);
    layout->addWidget(field);
    layout->addWidget(buttons);

    QObject::connect(dialog, &QDialog::finished, dialog, [field, done = std::move(done)](int result) {
        std::optional<QString> password;
        if (result == QDialog::Accepted) {
            password = field->text();
        }
        // The dialog is about to go; its copy of the password goes first.
        field->clear();
        done(std::move(password));
    });

    // The dialog opens with the focus on Continue, not in the field: the person clicks into the field first.
    continueButton->setFocus();
    dialog->show();
}
