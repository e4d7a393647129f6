#include "ui/ViewOptionsWindowController.h"

#include "foundation/PreferenceKeys.h"
#include "foundation/ViewOptions.h"
#include "ui/PreferenceCheckBox.h"
#include "ui/PreferenceComboBox.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QPushButton>
#include <QVBoxLayout>

ViewOptionsWindowController::ViewOptionsWindowController(Defaults& defaults, QWidget* parent)
    : QWidget(parent, Qt::Window)
    , m_defaults(defaults)
{
    setWindowTitle(tr("View Options"));

    m_showUpgradesAbove =
        new PreferenceCheckBox(tr("Show upgradable packages first"), defaults, PreferenceKeys::TableShowUpgradesAbove);
    // Stored values without a look of their own are drawn like the first entry, so it stands for them.
    m_tableStyle = new PreferenceComboBox(defaults, PreferenceKeys::TableStyle,
                                          {{tr("Alternating rows"), 0},
                                           {tr("Horizontal lines"), 2},
                                           {tr("Dashed horizontal lines"), 3},
                                           {tr("Grid"), 4},
                                           {tr("Plain"), 6}},
                                          0);
    m_columnSizing = new PreferenceComboBox(defaults, PreferenceKeys::TableColumnSizing,
                                            {{tr("Fixed widths"), 0},
                                             {tr("All columns alike"), 1},
                                             {tr("Last column first"), 3},
                                             {tr("First column first"), 4},
                                             {tr("First column only"), 6},
                                             {tr("Last column only"), 7}},
                                            0);
    m_transcriptFont = new PreferenceComboBox(defaults, PreferenceKeys::TranscriptFontStyle,
                                              {{tr("Monospaced"), 0}, {tr("System"), 1}}, 0);

    auto* form = new QFormLayout;
    form->addRow(QString(), m_showUpgradesAbove);
    form->addRow(tr("Table style:"), m_tableStyle);
    form->addRow(tr("Column sizing:"), m_columnSizing);
    form->addRow(tr("Transcript font:"), m_transcriptFont);

    auto* buttons = new QDialogButtonBox;
    m_resetButton = buttons->addButton(tr("Reset"), QDialogButtonBox::ResetRole);
    m_resetButton->setObjectName(QStringLiteral("resetViewOptions"));
    connect(m_resetButton, &QPushButton::clicked, this, &ViewOptionsWindowController::resetViewOptions);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addStretch();
    layout->addWidget(buttons);
}

void ViewOptionsWindowController::resetViewOptions()
{
    ViewOptions::reset(m_defaults);
}
