#pragma once

#include <QApplication>
#include <QString>

// The common part of the host and the helper agent: Qt's event loop in the place of the main run
// loop, and texts and an icon from the bundle. Main thread only.
namespace acme {

// Lets Qt's event loop do the work of the main run loop, ends it at SIGTERM and SIGINT, and gives
// the windows the identifier and the icon of the main bundle. ACME_SCHEME=dark makes them dark.
void joinDesktop(QApplication& app);

// Returns an English text in the language of the user: that of LANG.lproj/InfoPlist.strings.
QString text(const char* english);

}  // namespace acme
