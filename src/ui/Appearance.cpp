#include "ui/Appearance.h"

#include <QApplication>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>

namespace {

QPalette darkPalette()
{
    QPalette palette;
    const QColor window(0x2b, 0x2b, 0x2e);
    const QColor base(0x1e, 0x1e, 0x20);
    const QColor text(0xe8, 0xe8, 0xea);
    const QColor accent(0x3d, 0x8b, 0xfd);
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, base);
    palette.setColor(QPalette::AlternateBase, window);
    palette.setColor(QPalette::ToolTipBase, window);
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::Button, window);
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::BrightText, Qt::red);
    palette.setColor(QPalette::Link, accent);
    palette.setColor(QPalette::Highlight, accent);
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::PlaceholderText, QColor(0x8e, 0x8e, 0x93));
    palette.setColor(QPalette::Disabled, QPalette::Text, QColor(0x6e, 0x6e, 0x73));
    palette.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x6e, 0x6e, 0x73));
    palette.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0x6e, 0x6e, 0x73));
    return palette;
}

} // namespace

Appearance::Tag Appearance::fromValue(qint64 value)
{
    switch (value) {
    case Light:
        return Light;
    case Dark:
        return Dark;
    default:
        return SystemDefault;
    }
}

QString Appearance::label(Tag tag)
{
    switch (tag) {
    case Light:
        return QStringLiteral("Light Mode");
    case Dark:
        return QStringLiteral("Dark Mode");
    case SystemDefault:
        break;
    }
    return QStringLiteral("System Default");
}

void Appearance::apply(Tag tag)
{
    // Fusion draws both palettes faithfully; the platform style is kept when following the system.
    static const QString platformStyle = QApplication::style() ? QApplication::style()->name() : QString();
    switch (tag) {
    case Light:
        QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
        QApplication::setPalette(QApplication::style()->standardPalette());
        break;
    case Dark:
        QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
        QApplication::setPalette(darkPalette());
        break;
    case SystemDefault:
        if (!platformStyle.isEmpty()) {
            QApplication::setStyle(QStyleFactory::create(platformStyle));
        }
        QApplication::setPalette(QApplication::style()->standardPalette());
        break;
    }
}
