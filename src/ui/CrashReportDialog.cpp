#include "ui/CrashReportDialog.h"

#include <QDialogButtonBox>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStyle>
#include <QVBoxLayout>
#include <utility>

CrashReportDialog::CrashReportDialog(QWidget* parent)
    : QDialog(parent)
    , m_textView(new QPlainTextEdit(this))
{
    setWindowTitle(tr("Crash Report"));
    setObjectName(QStringLiteral("crashReportDialog"));

    auto* icon = new QLabel(this);
    icon->setObjectName(QStringLiteral("cautionIcon"));
    icon->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(48, 48));
    icon->setAlignment(Qt::AlignTop);

    auto* title = new QLabel(tr("<b>Corvel X quit unexpectedly the last time it ran.</b>"), this);
    auto* explanation =
        new QLabel(tr("Sending this report helps fix the problem. It contains no personal information beyond what "
                      "you can read below."),
                   this);
    explanation->setWordWrap(true);

    m_textView->setObjectName(QStringLiteral("textView"));
    m_textView->setReadOnly(true);
    m_textView->setLineWrapMode(QPlainTextEdit::NoWrap);
    m_textView->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_textView->setMinimumSize(560, 320);

    auto* buttons = new QDialogButtonBox(this);
    m_sendButton = buttons->addButton(tr("Send Report"), QDialogButtonBox::AcceptRole);
    m_dismissButton = buttons->addButton(tr("Don't Send"), QDialogButtonBox::RejectRole);
    m_sendButton->setDefault(true);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto* text = new QVBoxLayout;
    text->addWidget(title);
    text->addWidget(explanation);
    text->addWidget(m_textView, 1);
    text->addWidget(buttons);
    auto* layout = new QHBoxLayout(this);
    layout->addWidget(icon);
    layout->addLayout(text, 1);
}

void CrashReportDialog::showReport(const QString& report, std::function<void(bool send)> answer)
{
    m_report = report;
    m_answer = std::move(answer);
    m_textView->setPlainText(report);
    show();
    raise();
    activateWindow();
}

void CrashReportDialog::done(int result)
{
    QDialog::done(result);
    // Taken out first: the answer may show another report, which installs a new one.
    if (std::function<void(bool)> answer = std::exchange(m_answer, {})) {
        answer(result == QDialog::Accepted);
    }
}
