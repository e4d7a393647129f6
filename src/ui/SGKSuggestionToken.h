// One active filter shown as a token: its label, a menu to switch it to one of its alternate kinds (so a text filter
// changes field without retyping), and a button that removes it.
#pragma once

#include <QFrame>
#include <QIcon>

class QToolButton;

class SGKSuggestionToken : public QFrame {
    Q_OBJECT

public:
    struct Alternate {
        QString kind;
        QString title;
    };

    SGKSuggestionToken(const QString& identifier, const QString& label, const QIcon& icon,
                       const QList<Alternate>& alternates, QWidget* parent = nullptr);

    const QString& identifier() const { return m_identifier; }
    QToolButton* labelButton() const { return m_labelButton; }
    QToolButton* removeButton() const { return m_removeButton; }

Q_SIGNALS:
    void removeRequested(const QString& identifier);
    void switchRequested(const QString& identifier, const QString& alternateKind);

private:
    QString m_identifier;
    QToolButton* m_labelButton;
    QToolButton* m_removeButton;
};
