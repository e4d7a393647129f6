// Presents alerts as window-modal message boxes with an optional "Do not ask again" checkbox.
#pragma once

#include "foundation/Alerter.h"

#include <QPointer>
#include <QWidget>

class MessageBoxAlerter : public Alerter {
public:
    explicit MessageBoxAlerter(QWidget* parent = nullptr);

    void setParentWidget(QWidget* parent);
    void present(const Alert& alert, std::function<void(AlertResponse)> done) override;

private:
    QPointer<QWidget> m_parent;
};
