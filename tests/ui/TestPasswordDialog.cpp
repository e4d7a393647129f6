#include "ui/PasswordDialog.h"

#include <QApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTest>

class TestPasswordDialog : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void showsTheQuestion();
    void answers_data();
    void answers();

private:
    static QDialog* openDialog();
};

QDialog* TestPasswordDialog::openDialog()
{
    const auto widgets = QApplication::topLevelWidgets();
    for (QWidget* widget : widgets) {
        if (auto* dialog = qobject_cast<QDialog*>(widget);
            dialog && dialog->isVisible() && dialog->objectName() == u"passwordDialog") {
            return dialog;
        }
    }
    return nullptr;
}

void TestPasswordDialog::showsTheQuestion()
{
    PasswordDialog prompt;
    bool answered = false;
    prompt.askPassword([&](std::optional<QString>) { answered = true; });

    QDialog* dialog = openDialog();
    QVERIFY(dialog);
    QVERIFY(QTest::qWaitForWindowExposed(dialog));
    QCOMPARE(dialog->windowModality(), Qt::ApplicationModal);

    QStringList texts;
    const auto labels = dialog->findChildren<QLabel*>();
    for (const QLabel* label : labels) {
        texts.append(label->text());
    }
    QCOMPARE(texts, (QStringList{QStringLiteral("Privacy & Security"),
                                 QStringLiteral("Insert the administrator password to complete the process.")}));

    auto* field = dialog->findChild<QLineEdit*>(QStringLiteral("passwordField"));
    QVERIFY(field);
    QCOMPARE(field->echoMode(), QLineEdit::Password);
    QCOMPARE(field->placeholderText(), QStringLiteral("Password"));
    QCOMPARE(field->size(), QSize(228, 22));
    QVERIFY(field->text().isEmpty());
    // The person clicks into the field; the dialog opens with Continue, the default, holding the focus.
    QVERIFY(!field->hasFocus());

    QStringList titles;
    QPushButton* defaultButton = nullptr;
    const auto buttons = dialog->findChildren<QPushButton*>();
    for (QPushButton* button : buttons) {
        titles.append(button->text());
        if (button->isDefault()) {
            defaultButton = button;
        }
    }
    titles.sort();
    QCOMPARE(titles, (QStringList{QStringLiteral("Cancel"), QStringLiteral("Continue")}));
    QVERIFY(defaultButton);
    QCOMPARE(defaultButton->text(), QStringLiteral("Continue"));
    QVERIFY(defaultButton->hasFocus());

    dialog->reject();
    QTRY_VERIFY(answered);
}

void TestPasswordDialog::answers_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("action");
    QTest::addColumn<bool>("cancelled");

    QTest::newRow("Continue") << QStringLiteral("s3cret pass") << QStringLiteral("Continue") << false;
    QTest::newRow("Continue with an empty field") << QString() << QStringLiteral("Continue") << false;
    QTest::newRow("Return in the field") << QStringLiteral("p4ss w0rd!") << QStringLiteral("return") << false;
    QTest::newRow("Cancel") << QStringLiteral("typed anyway") << QStringLiteral("Cancel") << true;
    QTest::newRow("window closed") << QStringLiteral("typed anyway") << QStringLiteral("close") << true;
}

void TestPasswordDialog::answers()
{
    QFETCH(QString, typed);
    QFETCH(QString, action);
    QFETCH(bool, cancelled);

    PasswordDialog prompt;
    int calls = 0;
    std::optional<QString> answer;
    prompt.askPassword([&](std::optional<QString> password) {
        ++calls;
        answer = std::move(password);
    });
    QDialog* dialog = openDialog();
    QVERIFY(dialog);
    QVERIFY(QTest::qWaitForWindowExposed(dialog));
    QPointer<QDialog> guard(dialog);

    auto* field = dialog->findChild<QLineEdit*>(QStringLiteral("passwordField"));
    field->setFocus();
    QTest::keyClicks(field, typed);
    QCOMPARE(field->text(), typed);

    if (action == u"return") {
        QTest::keyClick(field, Qt::Key_Return);
    } else if (action == u"close") {
        dialog->close();
    } else {
        const auto buttons = dialog->findChild<QDialogButtonBox*>()->buttons();
        for (QAbstractButton* button : buttons) {
            if (button->text() == action) {
                button->click();
            }
        }
    }

    QTRY_COMPARE(calls, 1);
    QCOMPARE(answer.has_value(), !cancelled);
    if (answer) {
        QCOMPARE(*answer, typed);
    }
    // The dialog does not outlive its answer.
    QTRY_VERIFY(!guard);
}

QTEST_MAIN(TestPasswordDialog)
#include "TestPasswordDialog.moc"
