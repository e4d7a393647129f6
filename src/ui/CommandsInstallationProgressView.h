// The lines a run of the companion commands' requirements step has shown, oldest first, each marked running, done or
// failed; the onboarding requirements page and the commands wizard both show one.
#pragma once

#include <QListWidget>
#include <QStringList>

class CommandsInstallation;

class CommandsInstallationProgressView : public QListWidget {
    Q_OBJECT

public:
    enum class LineState { running, done, failed };
    Q_ENUM(LineState)

    // The item data role that holds a line's LineState as an int.
    static constexpr int lineStateRole = Qt::UserRole + 1;

    // step must outlive this view. Each start of the step begins a fresh list.
    explicit CommandsInstallationProgressView(CommandsInstallation& step, QWidget* parent = nullptr);

    QStringList lines() const;
    LineState lineState(int row) const;

private:
    void append(const QString& text);
    void markLast(LineState state);
};
