// A checkbox bound to one boolean preference: ticking it writes the key, and it follows the key when anything else
// writes it.
#pragma once

#include <QCheckBox>

class Defaults;

class PreferenceCheckBox : public QCheckBox {
    Q_OBJECT

public:
    PreferenceCheckBox(const QString& text, Defaults& defaults, const QString& key, QWidget* parent = nullptr);

    const QString& key() const { return m_key; }

private:
    void follow();

    Defaults& m_defaults;
    QString m_key;
};
