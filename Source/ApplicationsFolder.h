#pragma once

namespace ombrix {

// Renames a system folder that is spelled "/applications" on disk to "/Applications", which an
// upgrade of the system expects. Leaves any other alone; tells of no failure.
void repairApplicationsFolder();

}  // namespace ombrix
