// Database paths to files (see paths.h).
#include "store/paths.h"

#include <cstring>

#include "env/environment.h"
#include "globerr.h"

namespace tarnwick::rt::store {

STATUS resolve_database_path(const char* api_path, std::filesystem::path* file) {
  if (api_path == nullptr) return ERR_INV_FILE_NAME;
  const size_t length = std::strlen(api_path);
  if (length == 0 || length >= MAXPATH) return ERR_INV_FILE_NAME;
  *file = resolve_data_path(std::string_view(api_path, length));
  return NOERROR;
}

}  // namespace tarnwick::rt::store
