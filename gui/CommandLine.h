#pragma once

#include <QString>
#include <QStringList>

namespace gui {

// What the window's command line asks for. There is no usage message: anything it does not know is
// ignored, so the tool can be started from scripts that pass options meant for other programs.
struct CommandLine
{
    bool startTracing = false;
    bool startFileTracing = false;
    QString fileName;
    // Paths given before any "-ft": captures to open beside the live window (a file manager passes
    // them so), which the window's own walk leaves alone.
    QStringList captureFiles;

    // Walks the arguments in order, the program name included. A path counts only after "-ft", and
    // a later path replaces an earlier one.
    static CommandLine parse(QStringList const& arguments);
};

} // namespace gui
