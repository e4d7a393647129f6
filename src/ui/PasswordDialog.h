// Asks for the administrator password in an application-modal dialog: "Privacy & Security", a masked field, and
// the buttons "Continue" (the default) and "Cancel".
#pragma once

#include "homebrew/PasswordPrompt.h"

#include <QCoreApplication>
#include <QPointer>
#include <QWidget>

class PasswordDialog : public PasswordPrompt {
    Q_DECLARE_TR_FUNCTIONS(PasswordDialog)

public:
    explicit PasswordDialog(QWidget* parent = nullptr);

    void setParentWidget(QWidget* parent);

    // Continue answers the field's text, even when empty; Cancel, Escape or closing the dialog answer nullopt.
    void askPassword(std::function<void(std::optional<QString> password)> done) override;

private:
    QPointer<QWidget> m_parent;
};
