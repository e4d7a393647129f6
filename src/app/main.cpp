#include "ui/MainWindow.h"

#include <QApplication>

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Corvel X"));
    QApplication::setOrganizationDomain(QStringLiteral("tessel.works"));

    MainWindow window;
    window.show();
    return QApplication::exec();
}
