// The view options window: how the tables and the transcript look (upgrades first, table style, column sizing,
// transcript font), each control bound to its preference, and a reset to the initial choices.
#pragma once

#include <QWidget>

class Defaults;
class PreferenceCheckBox;
class PreferenceComboBox;
class QPushButton;

class ViewOptionsWindowController : public QWidget {
    Q_OBJECT

public:
    explicit ViewOptionsWindowController(Defaults& defaults, QWidget* parent = nullptr);

    PreferenceCheckBox* showUpgradesAboveCheckBox() const { return m_showUpgradesAbove; }
    PreferenceComboBox* tableStyleComboBox() const { return m_tableStyle; }
    PreferenceComboBox* columnSizingComboBox() const { return m_columnSizing; }
    PreferenceComboBox* transcriptFontComboBox() const { return m_transcriptFont; }
    QPushButton* resetButton() const { return m_resetButton; }

public Q_SLOTS:
    void resetViewOptions();

private:
    Defaults& m_defaults;
    PreferenceCheckBox* m_showUpgradesAbove;
    PreferenceComboBox* m_tableStyle;
    PreferenceComboBox* m_columnSizing;
    PreferenceComboBox* m_transcriptFont;
    QPushButton* m_resetButton;
};
