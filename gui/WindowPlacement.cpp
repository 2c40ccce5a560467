#include "WindowPlacement.h"

#include "SettingsKeys.h"

#include <QGuiApplication>
#include <QScreen>
#include <QSettings>
#include <QStyle>
#include <QWidget>

namespace gui {

bool restorePlacement(QWidget& window, QSettings& settings)
{
    const bool fullscreen = settings.value(QLatin1String(SettingsKeys::s_Maximised), window.isMaximized()).toBool();
    window.setGeometry(QStyle::alignedRect(Qt::LeftToRight, Qt::AlignCenter, window.size(),
                                           QGuiApplication::primaryScreen()->availableGeometry()));
    // The store may hold anything: sizes and positions no screen has (X11 itself stops at 32767)
    // are not taken, so the window's geometry arithmetic cannot overflow.
    constexpr int limit = 32767;
    const QSize size = settings.value(QLatin1String(SettingsKeys::s_Size), window.size()).toSize();
    if (size.width() > 0 && size.height() > 0 && size.width() <= limit && size.height() <= limit)
        window.resize(size);
    const QPoint pos = settings.value(QLatin1String(SettingsKeys::s_Position), window.pos()).toPoint();
    if (pos.x() >= -limit && pos.x() <= limit && pos.y() >= -limit && pos.y() <= limit)
        window.move(pos);
    return fullscreen;
}

void savePlacement(QWidget const& window, QSettings& settings)
{
    settings.setValue(QLatin1String(SettingsKeys::s_Size), window.size());
    settings.setValue(QLatin1String(SettingsKeys::s_Position), window.pos());
    settings.setValue(QLatin1String(SettingsKeys::s_Maximised), window.isMaximized());
}

} // namespace gui
