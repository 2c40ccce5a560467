#pragma once

class QString;

namespace gui {

// Anyone may edit the settings store. Qt decodes a value written as "@Variant(...)" with its data
// stream, where a forged count makes it allocate gigabytes or throw std::bad_alloc; and it decodes
// every value of the file whenever it writes the file back. The tool writes such values only for
// colours, so every other one is taken out of the file before the window or a dialog opens it.
void dropForeignVariants(QString const& fileName);

} // namespace gui
