#include "ui/CommandsInstallationProgressView.h"

#include "operations/CommandsInstallation.h"

#include <QStyle>

CommandsInstallationProgressView::CommandsInstallationProgressView(CommandsInstallation& step, QWidget* parent)
    : QListWidget(parent)
{
    setObjectName(QStringLiteral("requirementsStatus"));
    setSelectionMode(QAbstractItemView::NoSelection);
    setFocusPolicy(Qt::NoFocus);
    setFrameShape(QFrame::NoFrame);
    // Only reads as a list of what happened: it sits on the page's own background.
    viewport()->setAutoFillBackground(false);

    connect(&step, &CommandsInstallation::runningChanged, this, [this](bool running) {
        if (running) {
            clear();
        }
    });
    connect(&step, &CommandsInstallation::statusTextChanged, this, &CommandsInstallationProgressView::append);
    connect(&step, &CommandsInstallation::finished, this, [this](CommandsInstallation::Outcome outcome) {
        markLast(outcome == CommandsInstallation::Outcome::completed ? LineState::done : LineState::failed);
    });
}

QStringList CommandsInstallationProgressView::lines() const
{
    QStringList texts;
    for (int row = 0; row < count(); ++row) {
        texts.append(item(row)->text());
    }
    return texts;
}

CommandsInstallationProgressView::LineState CommandsInstallationProgressView::lineState(int row) const
{
    const QListWidgetItem* line = item(row);
    return line ? LineState(line->data(lineStateRole).toInt()) : LineState::running;
}

void CommandsInstallationProgressView::append(const QString& text)
{
    // A new line means the one before it went through.
    markLast(LineState::done);
    auto* line = new QListWidgetItem(text, this);
    line->setData(lineStateRole, int(LineState::running));
    line->setFlags(Qt::ItemIsEnabled);
}

void CommandsInstallationProgressView::markLast(LineState state)
{
    QListWidgetItem* line = count() > 0 ? item(count() - 1) : nullptr;
    if (!line || LineState(line->data(lineStateRole).toInt()) != LineState::running) {
        return;
    }
    line->setData(lineStateRole, int(state));
    line->setIcon(
        style()->standardIcon(state == LineState::done ? QStyle::SP_DialogApplyButton : QStyle::SP_MessageBoxWarning));
}
