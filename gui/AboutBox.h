#pragma once

#include <QString>

class QWidget;

namespace gui {

// What the Help menu says about the program: name, version, what it is for, the Qt it runs on.
QString aboutText();
void showAbout(QWidget* parent);

} // namespace gui
