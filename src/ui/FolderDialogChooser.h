// Asks for a folder with the desktop's folder dialog: folders only, new folders allowed, confirmed with "Choose".
#pragma once

#include "operations/FolderChooser.h"

#include <QCoreApplication>
#include <QPointer>
#include <QWidget>

class FolderDialogChooser : public FolderChooser {
    Q_DECLARE_TR_FUNCTIONS(FolderDialogChooser)

public:
    explicit FolderDialogChooser(QWidget* parent = nullptr);

    void setParentWidget(QWidget* parent);

    // Modal: the operation that asks cannot go on without the answer.
    std::optional<QString> chooseFolder(const QString& title, const QString& message,
                                        const QString& startFolder) override;

private:
    QPointer<QWidget> m_parent;
};
