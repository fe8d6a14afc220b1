#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "Platform/FileDescriptor.h"

// The directories in which the sockets of the notification service lie: one of the machine,
// /run/ombrix, and one for each user who cannot use that. A directory counts only when it is what
// it should be: no link, of the right owner, closed to other writers.
//
// Root may let another user run the agent of the whole machine, by making that user a directory in
// its own: nobody else can. This agent then answers for the machine as root's would.

namespace ombrix::platform {

inline constexpr const char* machineAgentPath = "/run/ombrix/agent";

struct RuntimeDirectory {
  FileDescriptor descriptor;  // open for reading; names are taken relative to it
  uid_t owner = 0;
  // True for a directory of root's or of this process's own user. Another user's is visited by root
  // only, and with caution.
  bool trusted = false;
  bool ofMachineAgent = false;
};

// The directory in which this process's own sockets belong, made when it is missing. Nothing when
// there is none that this user can use.
[[nodiscard]] std::optional<RuntimeDirectory> ownRuntimeDirectory();

// The directory that root has made for the machine's agent, whoever its owner is. Nothing where
// root runs that agent itself.
[[nodiscard]] std::optional<RuntimeDirectory> machineAgentDirectory();

// Every directory in which sockets of others may lie, the trusted ones first. For root these
// include the directories of other users; for anybody else those would be of no use, since nobody
// heeds a stranger.
[[nodiscard]] std::vector<RuntimeDirectory> searchedRuntimeDirectories();

// The names in a directory, in its own order, at most `limit` of them.
[[nodiscard]] std::vector<std::string> namesIn(const FileDescriptor& directory, std::size_t limit);

}  // namespace ombrix::platform
