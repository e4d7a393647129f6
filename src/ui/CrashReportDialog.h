// The window that shows a crash report of an earlier run, with a caution icon, and lets the user send the report or
// dismiss it.
#pragma once

#include "diagnostics/CrashReporterWindowController.h"

#include <QDialog>

class QPlainTextEdit;
class QPushButton;

class CrashReportDialog : public QDialog, public CrashReporterWindowController {
    Q_OBJECT

public:
    explicit CrashReportDialog(QWidget* parent = nullptr);

    void showReport(const QString& report, std::function<void(bool send)> answer) override;
    std::optional<QString> report() const override { return m_report; }

    QPlainTextEdit* textView() const { return m_textView; }
    QPushButton* sendButton() const { return m_sendButton; }
    QPushButton* dismissButton() const { return m_dismissButton; }

    void done(int result) override;

private:
    std::optional<QString> m_report;
    std::function<void(bool)> m_answer;
    QPlainTextEdit* m_textView;
    QPushButton* m_sendButton;
    QPushButton* m_dismissButton;
};
