// The fuzzer's corpus of parameter files, run through the fuzzer's own entry point. The entry
// aborts on a status outside the documented ones; here the files written by hand also have the
// status of the reference look-up (camera 0, zoom 1.0, ISO 100) checked. Files the fuzzer adds
// to the corpus run too, without a table entry.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "tests/fuzz/params_fuzz_entry.h"

namespace {

namespace fs = std::filesystem;

fs::path corpusDir() {
    return fs::path(__FILE__).parent_path().parent_path() / "fuzz" / "params_corpus";
}

std::vector<uint8_t> readAll(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

struct Expected {
    uint32_t open;
    uint32_t lookup;  // of the reference capture, when the file opens
};

const std::map<std::string, Expected> kExpected = {
    {"valid_minimal.xml", {TAV_OK, TAV_OK}},
    {"truncated_in_value.xml", {TAV_ERROR_GENERIC, 0}},
    {"truncated_in_tag.xml", {TAV_ERROR_GENERIC, 0}},
    {"truncated_last_bracket.xml", {TAV_OK, TAV_OK}},
    {"empty.xml", {TAV_ERROR_GENERIC, 0}},
    {"binary.xml", {TAV_ERROR_GENERIC, 0}},
    {"broken_first_tag.xml", {TAV_ERROR_GENERIC, 0}},
    {"broken_first_tag_newline.xml", {TAV_ERROR_GENERIC, 0}},
    {"whitespace_only.xml", {TAV_ERROR_GENERIC, 0}},
    {"text_only.xml", {TAV_ERROR_GENERIC, 0}},
    {"wrong_types.xml", {TAV_OK, TAV_ERROR_NOT_FOUND}},
    {"wrong_types_camera_ok.xml", {TAV_OK, TAV_OK}},
    {"missing_camera.xml", {TAV_OK, TAV_ERROR_NOT_FOUND}},
    {"missing_zoom.xml", {TAV_OK, TAV_ERROR_NOT_FOUND}},
    {"missing_iso.xml", {TAV_OK, TAV_ERROR_NOT_FOUND}},
    {"missing_group.xml", {TAV_OK, TAV_ERROR_PARAM}},
    {"length_larger_than_values.xml", {TAV_OK, TAV_OK}},
    {"length_without_values.xml", {TAV_OK, TAV_ERROR_NOT_FOUND}},
    {"huge_values.xml", {TAV_OK, TAV_OK}},
    {"negative_values.xml", {TAV_OK, TAV_ERROR_NOT_FOUND}},
    {"negative_rows.xml", {TAV_OK, TAV_OK}},
    {"nan_text.xml", {TAV_OK, TAV_OK}},
    {"bad_group_id.xml", {TAV_OK, TAV_ERROR_PARAM}},
    {"other_camera.xml", {TAV_OK, TAV_ERROR_PARAM}},
    {"no_params_for_camera.xml", {TAV_OK, TAV_OK}},
    {"entities_comments_cdata.xml", {TAV_OK, TAV_OK}},
    {"utf8_bom.xml", {TAV_OK, TAV_OK}},
    {"deep_nesting.xml", {TAV_OK, TAV_OK}},
    {"deep_nesting_in_group.xml", {TAV_OK, TAV_OK}},
    {"many_zoom_rows.xml", {TAV_OK, TAV_OK}},
};

TEST(ParamsCorpus, EveryFileRunsWithItsStatus) {
    TavrinFuzz_quietMxml();
    std::vector<fs::path> files;
    for (const fs::directory_entry& e : fs::directory_iterator(corpusDir()))
        if (e.is_regular_file()) files.push_back(e.path());
    std::sort(files.begin(), files.end());
    size_t checked = 0;
    for (const fs::path& file : files) {
        std::vector<uint8_t> bytes = readAll(file);
        TavrinFuzz_ParamsResult result = TavrinFuzz_params(bytes.data(), bytes.size());
        auto it = kExpected.find(file.filename().string());
        if (it == kExpected.end()) continue;
        checked++;
        EXPECT_EQ(result.open, it->second.open) << file;
        if (result.open == TAV_OK) {
            EXPECT_EQ(result.lookup[0], it->second.lookup) << file;
        }
    }
    mxmlSetErrorCallback(nullptr);  // Mini-XML's own messages again, for the tests after this
    // Every file of the table is present.
    EXPECT_EQ(checked, kExpected.size());
}

// The valid file answers each capture of the fuzzer's key set as its rows say.
TEST(ParamsCorpus, ValidFileAnswersEveryKey) {
    std::vector<uint8_t> bytes = readAll(corpusDir() / "valid_minimal.xml");
    TavrinFuzz_ParamsResult result = TavrinFuzz_params(bytes.data(), bytes.size());
    ASSERT_EQ(result.open, TAV_OK);
    EXPECT_EQ(result.lookup[0], TAV_OK);               // 1.0 / 100
    EXPECT_EQ(result.lookup[1], TAV_OK);               // 2.5 -> 4.0 / 800 -> 6400
    EXPECT_EQ(result.lookup[2], TAV_ERROR_PARAM);      // camera 1
    EXPECT_EQ(result.lookup[3], TAV_ERROR_NOT_FOUND);  // zoom 1e9
    EXPECT_EQ(result.lookup[4], TAV_OK);               // super zoom 2.0 / 3200
    EXPECT_EQ(result.lookup[5], TAV_ERROR_PARAM);      // camera 7
}

}  // namespace
