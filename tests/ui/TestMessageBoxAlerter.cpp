#include "ui/MessageBoxAlerter.h"

#include <QApplication>
#include <QCheckBox>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <optional>

class TestMessageBoxAlerter : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void answers_data();
    void answers();
};

void TestMessageBoxAlerter::answers_data()
{
    QTest::addColumn<QString>("suppressionKey");
    QTest::addColumn<int>("click");
    QTest::addColumn<bool>("check");
    QTest::addColumn<int>("expectedButton");

    QTest::newRow("first button") << QString() << 0 << false << 0;
    QTest::newRow("second button, suppressed") << QStringLiteral("SuppressReinstallAlert") << 1 << true << 1;
    QTest::newRow("escape is the last button") << QStringLiteral("SuppressReinstallAlert") << -1 << false << 1;
}

void TestMessageBoxAlerter::answers()
{
    QFETCH(QString, suppressionKey);
    QFETCH(int, click);
    QFETCH(bool, check);
    QFETCH(int, expectedButton);

    QWidget parent;
    parent.show();
    MessageBoxAlerter alerter(&parent);
    std::optional<AlertResponse> response;
    alerter.present({Alert::Style::Warning,
                     QStringLiteral("Reinstall?"),
                     QStringLiteral("It takes a while."),
                     {QStringLiteral("Reinstall"), QStringLiteral("Cancel")},
                     suppressionKey},
                    [&](AlertResponse answer) { response = answer; });

    QMessageBox* box = parent.findChild<QMessageBox*>();
    QVERIFY(box);
    QTRY_VERIFY(box->isVisible());
    QCOMPARE(box->text(), QStringLiteral("Reinstall?"));
    QCOMPARE(box->informativeText(), QStringLiteral("It takes a while."));
    QCOMPARE(bool(box->checkBox()), !suppressionKey.isEmpty());
    QVERIFY(!response);

    if (check) {
        box->checkBox()->setChecked(true);
    }
    if (click >= 0) {
        const auto buttons = box->buttons();
        QAbstractButton* target = nullptr;
        for (QAbstractButton* button : buttons) {
            if (button->text() == (click == 0 ? QStringLiteral("Reinstall") : QStringLiteral("Cancel"))) {
                target = button;
            }
        }
        QVERIFY(target);
        target->click();
    } else {
        QTest::keyClick(box, Qt::Key_Escape);
    }
    QTRY_VERIFY(response);
    QCOMPARE(response->button, expectedButton);
    QCOMPARE(response->suppressionChecked, check);
}

QTEST_MAIN(TestMessageBoxAlerter)
#include "TestMessageBoxAlerter.moc"
