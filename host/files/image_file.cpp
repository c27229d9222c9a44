#include "host/files/image_file.h"

#include "host/files/decoder_pool.h"

namespace qmr {

FileResult<DecodedImage> ReadImageFile(const std::string& path, const ReadOptions& options) {
  return DecoderPool::Shared().Decode(path, options);
}

bool StartDecoders() {
  return DecoderPool::Shared().Start();
}

}  // namespace qmr
