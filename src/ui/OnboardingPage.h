// One page of the first-run assistant: its heading, whether the person may go on from it, and what it starts when
// it comes up.
#pragma once

#include <QString>
#include <QWidget>

class QLabel;
class QVBoxLayout;

class OnboardingPage : public QWidget {
    Q_OBJECT

public:
    explicit OnboardingPage(const QString& title, QWidget* parent = nullptr);

    QString title() const { return m_title; }
    // Whether Continue may leave the page.
    virtual bool isComplete() const { return true; }
    // Whether work started by the page runs now; Back waits for it.
    virtual bool isBusy() const { return false; }
    // The assistant calls this each time the page becomes the current one.
    virtual void activate() {}

Q_SIGNALS:
    // isComplete() or isBusy() may have changed.
    void stateChanged();

protected:
    // Below the heading, where a page puts its content.
    QVBoxLayout* contentLayout() const { return m_content; }
    // A wrapped paragraph of text.
    static QLabel* paragraph(const QString& text);

private:
    QString m_title;
    QVBoxLayout* m_content;
};
