// Fuzz entry: decoding a stored items blob must never read out of bounds, and
// whatever decodes must encode back to the same bytes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "globerr.h"
#include "store/item_codec.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tarnwick::rt::store;
  std::string_view blob(reinterpret_cast<const char*>(data), size);
  std::vector<Item> items;
  if (decode_items(blob, false, &items) == NOERROR && !blob.empty()) {
    if (encode_items(items) != blob) std::abort();
  }
  decode_items(blob, true, &items);
  return 0;
}
