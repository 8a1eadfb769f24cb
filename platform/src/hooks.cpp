// Fills the hooks that lower areas of the runtime offer with the areas above
// them, before main() runs. This object is linked into every program that
// uses the runtime (see ../CMakeLists.txt), so no program runs without them.
#include <string>

#include "addin/server_log.h"
#include "directory/directory.h"
#include "mq/refusal_report.h"
#include "store/group_membership.h"

namespace {

[[maybe_unused]] const bool hooks_installed = [] {
  tarnwick::rt::store::install_group_membership_lookup(&tarnwick::rt::directory::groups_containing);
  tarnwick::rt::mq::install_refusal_reporter(
      [](const std::string& text) { tarnwick::rt::write_server_log("", text); });
  return true;
}();

}  // namespace
