#pragma once

#include <cstring>
#include <vector>

#include <alg_factory/api/DataSink.h>
#include <alg_factory/service/ResultBlock.h>

namespace testing_support {

/// Keeps a copy of every delivered block, and the offset and length it came with.
class BlockCollector : public algorithm::DataSink {
 public:
  bool Deliver(const void* buffer, int offset, int length) override {
    algorithm::ResultBlock block;
    std::memcpy(&block, static_cast<const unsigned char*>(buffer) + offset, sizeof block);
    blocks.push_back(block);
    offsets.push_back(offset);
    lengths.push_back(length);
    return false;  // ignored
  }

  const algorithm::ResultBlock& last() const { return blocks.at(blocks.size() - 1); }

  std::vector<algorithm::ResultBlock> blocks;
  std::vector<int> offsets;
  std::vector<int> lengths;
};

}  // namespace testing_support
