#include "src/xml_parser.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "foundation/status.h"

namespace {

namespace fs = std::filesystem;

class XmlParserTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "tavrin_xml_XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir = pattern;
    }
    void TearDown() override { fs::remove_all(dir); }

    std::string path(const char* name) const { return (dir / name).string(); }

    std::string write(const char* name, const std::string& text) const {
        std::ofstream(path(name)) << text;
        return path(name);
    }

    static std::string slurp(const std::string& file) {
        std::ifstream in(file);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }

    // Opens text as a document for reading; the test fails when it does not open.
    tavrin_KELD_XmlParser* load(const std::string& text) {
        tavrin_KELD_XmlParser* parser = nullptr;
        EXPECT_EQ(
            TavrinKELD_XmlParser_open(&parser, write("in.xml", text).c_str(), TAVRIN_KELD_XML_READ),
            TAV_OK);
        return parser;
    }

    // One value of the element name anywhere in the document.
    static uint32_t read(tavrin_KELD_XmlParser* parser, const char* name, int32_t type, void* out,
                         size_t size = 0) {
        return TavrinKELD_XmlParser_readValue(parser, nullptr, name, nullptr, nullptr, type, out,
                                              size);
    }
    static uint32_t readInts(tavrin_KELD_XmlParser* parser, const char* name, int32_t* out,
                             int32_t capacity, int32_t* length) {
        return TavrinKELD_XmlParser_readArray(parser, nullptr, name, nullptr, nullptr,
                                              TAVRIN_KELD_XML_INT, out, capacity, length);
    }

    fs::path dir;
};

TEST_F(XmlParserTest, OpenModesAndFailures) {
    EXPECT_STREQ(TavrinKELD_XmlParser_getVersion(),
                 "Tavrin Internal XML Parser Ver.3.2.0 2021-06-30");
    tavrin_KELD_XmlParser* parser = nullptr;
    std::string good = write("good.xml", "<a><b>1</b></a>");
    EXPECT_EQ(TavrinKELD_XmlParser_open(&parser, good.c_str(), 0), TAV_ERROR_PARAM);
    EXPECT_EQ(TavrinKELD_XmlParser_open(&parser, good.c_str(), 3), TAV_ERROR_PARAM);
    EXPECT_EQ(TavrinKELD_XmlParser_open(&parser, nullptr, 1), TAV_ERROR_PARAM);
    EXPECT_EQ(TavrinKELD_XmlParser_open(&parser, path("absent.xml").c_str(), 1), TAV_ERROR_GENERIC);
    EXPECT_EQ(TavrinKELD_XmlParser_open(&parser, write("bad.xml", "<a></b>").c_str(), 1),
              TAV_ERROR_GENERIC);
    // Nothing but whitespace or text, or a start tag broken before the first element exists.
    for (const char* text : {"", " \n\t", "words only", "<a x=\"1\"", "<\n<a></a>", "<a><b>1</b>"})
        EXPECT_EQ(TavrinKELD_XmlParser_open(&parser, write("odd.xml", text).c_str(), 1),
                  TAV_ERROR_GENERIC)
            << text;
    EXPECT_EQ(TavrinKELD_XmlParser_open(&parser, path("no/such/dir.xml").c_str(), 2),
              TAV_ERROR_GENERIC);
    EXPECT_EQ(parser, nullptr);

    ASSERT_EQ(TavrinKELD_XmlParser_open(&parser, good.c_str(), 1), TAV_OK);
    mxml_node_t* node = nullptr;
    // A read-mode document takes no new elements.
    EXPECT_EQ(TavrinKELD_XmlParser_addElement(parser, nullptr, "x", &node), TAV_ERROR_STATE);
    EXPECT_EQ(TavrinKELD_XmlParser_close(&parser), TAV_OK);
    EXPECT_EQ(parser, nullptr);
    EXPECT_EQ(TavrinKELD_XmlParser_close(&parser), TAV_ERROR_PARAM);
}

}  // namespace
