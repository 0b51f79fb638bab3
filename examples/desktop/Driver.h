#pragma once

#include <QApplication>

#include "Transcript.h"

namespace acme {

// Lets a script use the windows in the place of a user. Each line of standard input is a command,
// whose outcome is a line of the transcript; the end of the input quits. Main thread only.
//   press NAME      clicks the button of that object name, if a user could
//   read NAME       tells the text of that label or text field
//   picture FILE    stores what is on the screen, or of the window where that may not be seen
void driveByStandardInput(QApplication& app, const Transcript& transcript);

}  // namespace acme
