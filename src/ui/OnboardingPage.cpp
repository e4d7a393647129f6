#include "ui/OnboardingPage.h"

#include <QLabel>
#include <QVBoxLayout>

OnboardingPage::OnboardingPage(const QString& title, QWidget* parent)
    : QWidget(parent)
    , m_title(title)
    , m_content(new QVBoxLayout)
{
    auto* heading = new QLabel(title);
    heading->setObjectName(QStringLiteral("pageHeading"));
    QFont font = heading->font();
    font.setPointSizeF(font.pointSizeF() * 1.5);
    font.setBold(true);
    heading->setFont(font);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(heading);
    layout->addSpacing(8);
    layout->addLayout(m_content, 1);
}

QLabel* OnboardingPage::paragraph(const QString& text)
{
    auto* label = new QLabel(text);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}
