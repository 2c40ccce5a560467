#include "WindowPlacement.h"

#include <QGuiApplication>
#include <QScreen>
#include <QSettings>
#include <QStyle>
#include <QWidget>

namespace gui {

bool restorePlacement(QWidget& window, QSettings& settings)
{
    const bool fullscreen = settings.value(QStringLiteral("fullscreen"), window.isMaximized()).toBool();
    window.setGeometry(QStyle::alignedRect(Qt::LeftToRight, Qt::AlignCenter, window.size(),
                                           QGuiApplication::primaryScreen()->availableGeometry()));
    window.resize(settings.value(QStringLiteral("size"), window.size()).toSize());
    window.move(settings.value(QStringLiteral("pos"), window.pos()).toPoint());
    return fullscreen;
}

void savePlacement(QWidget const& window, QSettings& settings)
{
    settings.setValue(QStringLiteral("size"), window.size());
    settings.setValue(QStringLiteral("pos"), window.pos());
    settings.setValue(QStringLiteral("fullscreen"), window.isMaximized());
}

} // namespace gui
