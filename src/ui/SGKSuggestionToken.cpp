#include "ui/SGKSuggestionToken.h"

#include <QCoreApplication>
#include <QHBoxLayout>
#include <QMenu>
#include <QToolButton>

SGKSuggestionToken::SGKSuggestionToken(const QString& identifier, const QString& label, const QIcon& icon,
                                       const QList<Alternate>& alternates, QWidget* parent)
    : QFrame(parent)
    , m_identifier(identifier)
    , m_labelButton(new QToolButton(this))
    , m_removeButton(new QToolButton(this))
{
    setObjectName(QStringLiteral("suggestionToken"));
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::Midlight);
    setFrameShape(QFrame::StyledPanel);

    m_labelButton->setObjectName(QStringLiteral("suggestionTokenLabel"));
    m_labelButton->setAutoRaise(true);
    m_labelButton->setFocusPolicy(Qt::NoFocus);
    m_labelButton->setText(label);
    m_labelButton->setIcon(icon);
    m_labelButton->setToolButtonStyle(icon.isNull() ? Qt::ToolButtonTextOnly : Qt::ToolButtonTextBesideIcon);
    if (!alternates.isEmpty()) {
        auto* menu = new QMenu(m_labelButton);
        for (const Alternate& alternate : alternates) {
            const QString kind = alternate.kind;
            menu->addAction(alternate.title, this, [this, kind] { Q_EMIT switchRequested(m_identifier, kind); });
        }
        m_labelButton->setMenu(menu);
        m_labelButton->setPopupMode(QToolButton::InstantPopup);
    }

    m_removeButton->setObjectName(QStringLiteral("suggestionTokenRemove"));
    m_removeButton->setAutoRaise(true);
    m_removeButton->setFocusPolicy(Qt::NoFocus);
    m_removeButton->setText(QStringLiteral("\u00D7"));
    m_removeButton->setToolTip(QCoreApplication::translate("Suggestions", "Remove Filter"));
    connect(m_removeButton, &QToolButton::clicked, this, [this] { Q_EMIT removeRequested(m_identifier); });

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(2, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_labelButton);
    layout->addWidget(m_removeButton);
}
