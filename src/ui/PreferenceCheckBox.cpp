#include "ui/PreferenceCheckBox.h"

#include "foundation/Defaults.h"

PreferenceCheckBox::PreferenceCheckBox(const QString& text, Defaults& defaults, const QString& key, QWidget* parent)
    : QCheckBox(text, parent)
    , m_defaults(defaults)
    , m_key(key)
{
    setObjectName(key);
    follow();
    // clicked, not toggled: only a person's change is written, never the box following the key.
    connect(this, &QCheckBox::clicked, this, [this](bool checked) { m_defaults.setValue(m_key, checked); });
    m_defaults.observe(m_key, this, [this] { follow(); });
}

void PreferenceCheckBox::follow()
{
    setChecked(m_defaults.boolValue(m_key));
}
