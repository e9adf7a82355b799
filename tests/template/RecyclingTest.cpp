#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <thread>
#include <vector>

#include "template/Recycling.h"

namespace drovel::templating {
namespace {

struct Block {
    void* memory;
    std::size_t size;
    unsigned char fill;
};

// Takes blocks of every size, fills each whole, and checks that no two live blocks share a byte.
std::vector<Block> takeAndFill(const std::vector<std::size_t>& sizes, unsigned char firstFill) {
    std::vector<Block> blocks;
    unsigned char fill = firstFill;
    for (std::size_t size : sizes) {
        void* memory = recycling::allocate(size);
        std::memset(memory, fill, size);
        blocks.push_back({memory, size, fill++});
    }
    for (const Block& block : blocks) {
        const auto* bytes = static_cast<const unsigned char*>(block.memory);
        std::size_t intact = 0;
        while (intact < block.size && bytes[intact] == block.fill) ++intact;
        EXPECT_EQ(intact, block.size) << "block of " << block.size;
    }
    return blocks;
}

void releaseAll(const std::vector<Block>& blocks) {
    for (const Block& block : blocks) recycling::release(block.memory, block.size);
}

TEST(Recycling, LiveBlocksNeverOverlapWhateverTheirSizes) {
    // Sizes at and around the rounding steps and the largest kept size, more of each than are kept.
    std::vector<std::size_t> sizes;
    for (std::size_t size : {1, 15, 16, 17, 100, 1023, 1024, 1025, 4096})
        for (int copy = 0; copy < 20; ++copy) sizes.push_back(size);
    auto first = takeAndFill(sizes, 1);
    releaseAll(first);
    // Recycled blocks come back to new owners, still each of its own.
    auto second = takeAndFill(sizes, 101);
    std::set<void*> distinct;
    for (const Block& block : second) distinct.insert(block.memory);
    EXPECT_EQ(distinct.size(), second.size());
    releaseAll(second);
}

TEST(Recycling, BlocksMayBeReleasedOnAnotherThreadAndAfterTheirThreadEnded) {
    std::vector<Block> blocks;
    std::thread maker([&] { blocks = takeAndFill({24, 24, 200, 2000}, 1); });
    maker.join();
    releaseAll(blocks);  // here, after the thread that took them ended
    std::thread taker([&] { blocks = takeAndFill({24, 200}, 7); });
    taker.join();
    std::thread releaser([&] { releaseAll(blocks); });
    releaser.join();
}

}  // namespace
}  // namespace drovel::templating
