#include "fs/DirectoryListing.h"

#include <memory>

namespace tw::listing_detail {

char* threadBuffer() {
  thread_local std::unique_ptr<char[]> buffer(new char[kBufferSize]);
  return buffer.get();
}

}  // namespace tw::listing_detail
