#include "Source/ApplicationsFolder.h"

#include "Utilities/FileUtils.h"

namespace ombrix {

void repairApplicationsFolder() {
  if (FileUtils::caseSensitiveFilePath("/Applications") != "/applications") return;
  // On a disk that ignores case both spellings name one folder, hence the third name between them.
  FileUtils::moveItem("/applications", "/applications_");
  FileUtils::moveItem("/applications_", "/Applications");
}

}  // namespace ombrix
