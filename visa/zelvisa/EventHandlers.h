#pragma once

#include "visa.h"

namespace zelvisa {

// A handler the program installs reaches the real library wrapped, so that each delivery is
// recorded as a call of `viEventHandler` (the standard's name for a handler) around the program's
// own handler, which gets its own user handle and runs as program code: its VISA calls are traced.
// Registrations are kept for the life of the process, because a library may still deliver to one
// while it is being uninstalled; one installed again with the same arguments takes its old place.
struct HandlerArguments
{
    ViHndlr handler;
    ViAddr userHandle;
};

// What to install in the real library for the program's handler: the wrapper with its registration,
// or, when the table of registrations is full, the program's own handler (delivered, not recorded).
HandlerArguments handlerToInstall(ViSession vi, ViEventType type, ViHndlr handler, ViAddr userHandle);
// What to uninstall: the wrapper of a handler installed through handlerToInstall, else the arguments
// as given (VI_ANY_HNDLR removes the wrappers along with everything else).
HandlerArguments handlerToUninstall(ViSession vi, ViEventType type, ViHndlr handler, ViAddr userHandle);

} // namespace zelvisa
