// The copy of the set's logs to USB storage.
#pragma once

#include <string>

namespace fa::set
{

// Copies the folder with all that is in it into the storage's folder, replacing an older copy's
// files. A stick has files and folders only: anything else is left out. False where any of it
// fails, which is printed; a storage that is not there is no stick.
bool CopyLogs(const std::string& logFolder, const std::string& usbFolder);

}  // namespace fa::set
