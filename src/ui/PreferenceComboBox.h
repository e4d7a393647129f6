// A choice among labelled integer values bound to one preference: choosing writes the value, and the box follows the
// key when anything else writes it. A stored value without an entry shows the entry that stands for it.
#pragma once

#include <QComboBox>
#include <QList>

class Defaults;

class PreferenceComboBox : public QComboBox {
    Q_OBJECT

public:
    struct Choice {
        QString label;
        int value;
    };

    // fallbackValue: the entry shown for stored values that have none of their own (they behave as that one).
    PreferenceComboBox(Defaults& defaults, const QString& key, const QList<Choice>& choices, int fallbackValue,
                       QWidget* parent = nullptr);

    const QString& key() const { return m_key; }
    // The value of the entry shown.
    int currentValue() const { return currentData().toInt(); }

private:
    void follow();

    Defaults& m_defaults;
    QString m_key;
    int m_fallbackValue;
};
