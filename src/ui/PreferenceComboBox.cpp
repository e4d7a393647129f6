#include "ui/PreferenceComboBox.h"

#include "foundation/Defaults.h"

PreferenceComboBox::PreferenceComboBox(Defaults& defaults, const QString& key, const QList<Choice>& choices,
                                       int fallbackValue, QWidget* parent)
    : QComboBox(parent)
    , m_defaults(defaults)
    , m_key(key)
    , m_fallbackValue(fallbackValue)
{
    setObjectName(key);
    for (const Choice& choice : choices) {
        addItem(choice.label, choice.value);
    }
    follow();
    // activated, not currentIndexChanged: only a person's choice is written, never the box following the key.
    connect(this, &QComboBox::activated, this,
            [this](int index) { m_defaults.setValue(m_key, itemData(index).toInt()); });
    m_defaults.observe(m_key, this, [this] { follow(); });
}

void PreferenceComboBox::follow()
{
    int index = findData(static_cast<int>(m_defaults.integerValue(m_key)));
    if (index < 0) {
        index = findData(m_fallbackValue);
    }
    setCurrentIndex(index);
}
