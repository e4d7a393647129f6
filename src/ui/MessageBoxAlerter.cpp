#include "ui/MessageBoxAlerter.h"

#include <QCheckBox>
#include <QMessageBox>
#include <QPushButton>

MessageBoxAlerter::MessageBoxAlerter(QWidget* parent)
    : m_parent(parent)
{}

void MessageBoxAlerter::setParentWidget(QWidget* parent)
{
    m_parent = parent;
}

void MessageBoxAlerter::present(const Alert& alert, std::function<void(AlertResponse)> done)
{
    auto* box = new QMessageBox(m_parent);
    box->setAttribute(Qt::WA_DeleteOnClose);
    switch (alert.style) {
    case Alert::Style::Informational:
        box->setIcon(QMessageBox::Information);
        break;
    case Alert::Style::Warning:
        box->setIcon(QMessageBox::Warning);
        break;
    case Alert::Style::Critical:
        box->setIcon(QMessageBox::Critical);
        break;
    }
    box->setText(alert.message);
    box->setInformativeText(alert.informativeText);
    box->setWindowModality(m_parent ? Qt::WindowModal : Qt::ApplicationModal);

    QList<QAbstractButton*> buttons;
    const QStringList titles = alert.buttons.isEmpty() ? QStringList{QObject::tr("OK")} : alert.buttons;
    for (int i = 0; i < titles.size(); ++i) {
        auto* button = box->addButton(titles.at(i), i == 0 ? QMessageBox::AcceptRole : QMessageBox::RejectRole);
        buttons.append(button);
    }
    box->setDefaultButton(qobject_cast<QPushButton*>(buttons.first()));
    if (!alert.suppressionKey.isEmpty()) {
        box->setCheckBox(new QCheckBox(QObject::tr("Do not ask again"), box));
    }

    QObject::connect(box, &QMessageBox::finished, box, [box, buttons, done = std::move(done)] {
        const int index = buttons.indexOf(box->clickedButton());
        AlertResponse response;
        // Escape or closing the box counts as the last (cancelling) button.
        response.button = index >= 0 ? index : int(buttons.size()) - 1;
        response.suppressionChecked = box->checkBox() && box->checkBox()->isChecked();
        done(response);
    });
    box->open();
}
