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

// The exact text of a written document: declaration, tab indentation, leaves on one line however
// long, the number formats of each type.
TEST_F(XmlParserTest, WriterFormatsAndIndentation) {
    tavrin_KELD_XmlParser* parser = nullptr;
    std::string file = path("out.xml");
    ASSERT_EQ(TavrinKELD_XmlParser_open(&parser, file.c_str(), TAVRIN_KELD_XML_WRITE), TAV_OK);
    mxml_node_t* keld = nullptr;
    mxml_node_t* params = nullptr;
    ASSERT_EQ(TavrinKELD_XmlParser_addElement(parser, nullptr, "keld", &keld), TAV_OK);
    ASSERT_EQ(TavrinKELD_XmlParser_addElement(parser, keld, "params", &params), TAV_OK);
    auto put = [&](const char* name, int32_t type, const void* values, int32_t n) {
        return TavrinKELD_XmlParser_writeValues(parser, params, name, type, values, n);
    };
    const int32_t ints[3] = {-3, 0, 2147483647};
    const int64_t longs[1] = {-9000000000LL};
    const float floats[2] = {0.1f, -2.5f};
    const double doubles[2] = {1.0 / 3.0, -2.5e6};
    ASSERT_EQ(put("i", TAVRIN_KELD_XML_INT, ints, 3), TAV_OK);
    int32_t many[40];
    std::string many_text;
    for (int k = 0; k < 40; k++) {
        many[k] = -100000 * k;
        many_text += (k ? " " : "") + std::to_string(many[k]);
    }
    ASSERT_EQ(put("many", TAVRIN_KELD_XML_INT, many, 40), TAV_OK);
    ASSERT_EQ(put("l", TAVRIN_KELD_XML_LONG, longs, 1), TAV_OK);
    ASSERT_EQ(put("f", TAVRIN_KELD_XML_FLOAT, floats, 2), TAV_OK);
    ASSERT_EQ(put("d", TAVRIN_KELD_XML_DOUBLE, doubles, 2), TAV_OK);
    ASSERT_EQ(put("s", TAVRIN_KELD_XML_TEXT, "a<b & c", 1), TAV_OK);
    mxml_node_t* empty = nullptr;
    ASSERT_EQ(TavrinKELD_XmlParser_addElement(parser, params, "empty", &empty), TAV_OK);
    EXPECT_EQ(put("s", TAVRIN_KELD_XML_TEXT, "x", 2), TAV_ERROR_PARAM);
    EXPECT_EQ(put("i", TAVRIN_KELD_XML_INT, ints, 0), TAV_ERROR_PARAM);
    ASSERT_EQ(TavrinKELD_XmlParser_close(&parser), TAV_OK);

    const std::string expected =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
        "<keld>\n"
        "\t<params>\n"
        "\t\t<i length=\"3\" type=\"int\">-3 0 2147483647</i>\n"
        "\t\t<many length=\"40\" type=\"int\">" +
        many_text +
        "</many>\n"
        "\t\t<l length=\"1\" type=\"int64\">-9000000000</l>\n"
        "\t\t<f length=\"2\" type=\"float\">0.100000 -2.500000</f>\n"
        "\t\t<d length=\"2\" type=\"double\">0.3333333333 -2500000.0000000000</d>\n"
        "\t\t<s length=\"1\" type=\"string\">a&lt;b &amp; c</s>\n"
        "\t\t<empty />\n"
        "\t</params>\n"
        "</keld>\n";
    EXPECT_EQ(slurp(file), expected);
}

}  // namespace
