// The property-list reader, XML and binary: whatever the bytes, parsing neither crashes nor
// recurses past the nesting limit, and anything it accepts is no deeper than the limit (a
// check that let deeper nesting through would let a bigger input overflow libplist's stack).
#include <plist/plist.h>

#include <algorithm>
#include <cstdlib>
#include <utility>
#include <vector>

#include "FuzzSupport.h"
#include "platform/PropertyList.h"

namespace {

// The depth of a parsed tree, measured without recursion.
size_t depthOf(plist_t root) {
  size_t deepest = 0;
  std::vector<std::pair<plist_t, size_t>> pending{{root, 1}};
  while (!pending.empty()) {
    auto [node, depth] = pending.back();
    pending.pop_back();
    plist_type type = plist_get_node_type(node);
    if (type != PLIST_ARRAY && type != PLIST_DICT) continue;
    deepest = std::max(deepest, depth);
    if (type == PLIST_ARRAY) {
      for (uint32_t i = 0; i < plist_array_get_size(node); ++i)
        pending.emplace_back(plist_array_get_item(node, i), depth + 1);
    } else {
      plist_dict_iter iterator = nullptr;
      plist_dict_new_iter(node, &iterator);
      for (;;) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(node, iterator, &key, &value);
        if (!key) break;
        std::free(key);
        pending.emplace_back(value, depth + 1);
      }
      std::free(iterator);
    }
  }
  return deepest;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tw::fuzz::quietLogger();
  try {
    auto list = tw::PropertyList::parse(tw::fuzz::text(data, size));
    if (depthOf(static_cast<plist_t>(list.root())) > tw::PropertyList::kDeepestNesting) std::abort();
    // The settings store writes back what it read, foreign values included.
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(static_cast<plist_t>(list.root()), &xml, &length);
    std::free(xml);
    // What the scanners do with a list they accept.
    for (const char* key : {"CFBundleIdentifier", "Name", "CreationDate", "isDeleted", "Distributions"}) {
      auto node = tw::PropertyList::item(list.root(), key);
      tw::PropertyList::string(node);
      tw::PropertyList::date(node);
      tw::PropertyList::boolean(node);
      for (auto item : tw::PropertyList::arrayItems(node)) tw::PropertyList::item(item, "uploadEvent");
    }
  } catch (const tw::PropertyListError&) {
  }
  return 0;
}
