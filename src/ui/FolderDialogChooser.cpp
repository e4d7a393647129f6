#include "ui/FolderDialogChooser.h"

#include <QDir>
#include <QFileDialog>

FolderDialogChooser::FolderDialogChooser(QWidget* parent)
    : m_parent(parent)
{}

void FolderDialogChooser::setParentWidget(QWidget* parent)
{
    m_parent = parent;
}

std::optional<QString> FolderDialogChooser::chooseFolder(const QString& title, const QString& message,
                                                         const QString& startFolder)
{
    QFileDialog dialog(m_parent, title, QDir(startFolder).exists() ? startFolder : QDir::homePath());
    dialog.setObjectName(QStringLiteral("folderDialog"));
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly, true);
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    dialog.setLabelText(QFileDialog::Accept, tr("Choose"));
    if (!message.isEmpty()) {
        dialog.setLabelText(QFileDialog::LookIn, message);
    }
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) {
        return std::nullopt;
    }
    return QDir::cleanPath(dialog.selectedFiles().constFirst());
}
