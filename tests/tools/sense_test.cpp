// Sense data as the tool reads them, in both formats.
#include "varnokctl/sense.h"

#include <vector>

#include <gtest/gtest.h>

namespace
{

struct sample {
    std::vector<uint8_t> bytes;
    bool descriptors, deferred, harmless;
    const char *key, *code;
    size_t length;
};

const sample samples[] = {
    {{0xF0, 0, 0x65, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x21, 0, 0, 0, 0, 0, 9, 9},
     false,
     false,
     false,
     "illegal request",
     "logical block address out of range",
     18},
    {{0x71, 0, 0x03, 0, 0, 0, 0, 6, 0, 0, 0, 0, 0x11, 0x00},
     false,
     true,
     false,
     "medium error",
     "unrecovered read error",
     14},
    {{0x70, 0, 0x06, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x29, 0}, // its codes are not there
     false,
     false,
     false,
     "unit attention",
     "no additional sense information",
     8},
    {{0x72, 0x02, 0x04, 0x0A, 0, 0, 0, 0},
     true,
     false,
     false,
     "not ready",
     "logical unit not accessible, asymmetric access state transition",
     8},
    {{0x73, 0x01, 0x5D, 0x00, 0, 0, 0, 4, 2, 2, 0, 0, 7},
     true,
     true,
     false,
     "recovered error",
     "failure prediction threshold exceeded",
     12},
    {{0x72, 0x01, 0x5D, 0x00, 0, 0, 0, 255},
     true,
     false,
     true,
     "recovered error",
     "failure prediction threshold exceeded",
     8},
    {{0x70, 0, 0x00, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0xEE, 0xEE, 0, 0, 0, 0}, false, false, true, "no sense", "", 18},
};

TEST(Sense, IsReadInBothFormats)
{
    for (const sample &sample : samples) {
        const auto sense = ctl::decode_sense(sample.bytes);
        ASSERT_TRUE(sense);
        EXPECT_EQ(sense->descriptors, sample.descriptors);
        EXPECT_EQ(sense->deferred, sample.deferred);
        EXPECT_EQ(ctl::harmless(*sense), sample.harmless);
        EXPECT_EQ(ctl::key_text(*sense), sample.key);
        EXPECT_EQ(ctl::code_text(*sense), sample.code);
        EXPECT_EQ(sense->raw.size(), sample.length);
    }
}

TEST(Sense, IsNothingElse)
{
    for (const uint8_t response : std::vector<uint8_t>{0x00, 0x6F, 0x74, 0x7F})
        EXPECT_FALSE(ctl::decode_sense(std::vector<uint8_t>{response, 0, 5, 0, 0, 0, 0, 0}));
    EXPECT_FALSE(ctl::decode_sense(std::vector<uint8_t>{0x72, 5, 0x25, 0, 0, 0, 0}));
}

} // namespace
