#include "ui/AddRepositorySheet.h"

#include "operations/Repositories.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

AddRepositorySheet::AddRepositorySheet(Repositories& repositories, QWidget* parent)
    : QDialog(parent)
    , m_repositories(repositories)
{
    setWindowTitle(tr("Add Repository"));
    setWindowModality(Qt::WindowModal);

    auto* label = new QLabel(tr("Enter the name of the repository to add, in the form owner/name:"));
    label->setWordWrap(true);
    m_nameField = new QLineEdit;
    m_nameField->setObjectName(QStringLiteral("repositoryName"));
    m_nameField->setPlaceholderText(tr("owner/name"));
    label->setBuddy(m_nameField);

    auto* buttons = new QDialogButtonBox;
    m_addButton = buttons->addButton(tr("Add"), QDialogButtonBox::AcceptRole);
    m_cancelButton = buttons->addButton(QDialogButtonBox::Cancel);
    m_addButton->setDefault(true);
    connect(buttons, &QDialogButtonBox::accepted, this, &AddRepositorySheet::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &AddRepositorySheet::reject);
    connect(m_nameField, &QLineEdit::textChanged, this, &AddRepositorySheet::updateAddButton);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(label);
    layout->addWidget(m_nameField);
    layout->addWidget(buttons);
    updateAddButton();
}

QString AddRepositorySheet::repositoryName() const
{
    return m_nameField->text().trimmed();
}

void AddRepositorySheet::accept()
{
    // Return in the field reaches here even with Add disabled.
    const QString name = repositoryName();
    if (!Repositories::isValidName(name)) {
        return;
    }
    QDialog::accept();
    m_repositories.install(name);
}

void AddRepositorySheet::updateAddButton()
{
    m_addButton->setEnabled(Repositories::isValidName(repositoryName()));
}
