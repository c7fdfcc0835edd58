#include "nbx/io/program/farmodels.h"

#include <random>

#include <gtest/gtest.h>

using NBX::nearCollada;
using NBX::nearObj;
using NBX::nearPly;

namespace {

using Place = std::array<double, 3>;

const std::string s_farObj =
    "# far\nv 468123.5 5803210.25 34.5\n  v\t468124.5 5803209.125 -1 0.5 0.25 1\nvn 0 0 1\r\n"
    "vt 468123.5 0\nf 1 2 1\n";

std::string collada(const std::string & node, const std::string & positions = "1 2 3 4 5 6",
                    const std::string & more = "") {
    return "<COLLADA><library_geometries><geometry><mesh><source id=\"p\"><float_array>" + positions +
           "</float_array><technique_common><accessor stride=\"3\"/></technique_common></source><vertices>"
           "<input semantic=\"POSITION\" source=\"#p\"/></vertices>" +
           more + "</mesh></geometry></library_geometries><library_visual_scenes><visual_scene>" + node +
           "</visual_scene></library_visual_scenes></COLLADA>";
}

std::string node(const std::string & inside) {
    return "<node>" + inside + "</node>";
}

} // namespace

TEST(FarModelsTest, VerticesOfObjLoseWhatTheyHaveInCommon) {
    const auto moved = nearObj(s_farObj);
    ASSERT_TRUE(moved);
    EXPECT_EQ(moved->origin, (Place{468100, 5803200, 0}));
    EXPECT_EQ(moved->text,
              "# far\nv 23.5 10.25 34.5 \nv 24.5 9.125 -1 0.5 0.25 1 \nvn 0 0 1\r\nvt 468123.5 0\nf 1 2 1\n");
}

TEST(FarModelsTest, NearObjFilesStayAsTheyAre) {
    EXPECT_FALSE(nearObj(""));
    EXPECT_FALSE(nearObj("f 1 2 3\n"));
    EXPECT_FALSE(nearObj("v 9999 -9999 0\nv 1e6 0 0\n"));
    EXPECT_TRUE(nearObj("v 10000 0 0"));
    EXPECT_TRUE(nearObj("v 0 -10000 0"));
}

TEST(FarModelsTest, ObjFilesThatAreNotPlainlyUnderstoodStayAsTheyAre) {
    for (const char * line : {"v 1e6 0", "v 1e6 0 0 2", "v 1e6 0 x", "v 1e6 0 \\\n0", "v 1e6 nan 0",
                              "v 1e6,0,0", "v 1e13 0 0", "v 1e6 0 0 1 1"})
        EXPECT_FALSE(nearObj(std::string(line) + "\n")) << line;
    EXPECT_FALSE(nearObj(s_farObj + "v 1 2\n"));
}

TEST(FarModelsTest, OutermostNodesOfColladaLoseWhatTheyHaveInCommon) {
    const auto moved =
        nearCollada(collada(node("<translate>1000010 0 -20000.5</translate><rotate>0 0 1 90</rotate>" +
                                 node("<translate>5000000 0 0</translate>")) +
                            node("<matrix>1 0 0 1000030 0 1 0 7 0 0 1 0 0 0 0 1</matrix>")));
    ASSERT_TRUE(moved);
    EXPECT_EQ(moved->origin, (Place{1000000, 0, -20000}));
    EXPECT_NE(moved->text.find("<translate>10 0 -0.5 </translate>"), std::string::npos) << moved->text;
    EXPECT_NE(moved->text.find("<translate>5000000 0 0</translate>"), std::string::npos);
    EXPECT_NE(moved->text.find("<matrix>1 0 0 30 0 1 0 7 0 0 1 20000 0 0 0 1 </matrix>"), std::string::npos)
        << moved->text;
    EXPECT_NE(moved->text.find("1 2 3 4 5 6<"), std::string::npos);
}

TEST(FarModelsTest, VerticesOfColladaLoseWhatTheyHaveInCommonWhereNoNodeHasAPlace) {
    const auto moved = nearCollada(collada(node(""), "1e6 2 3\n 1000001 5 6"));
    ASSERT_TRUE(moved);
    EXPECT_EQ(moved->origin, (Place{1000000, 0, 0}));
    EXPECT_NE(moved->text.find(">0 2 3 1 5 6 <"), std::string::npos) << moved->text;
}

TEST(FarModelsTest, ColladaThatIsNearOrNotPlainlyUnderstoodStaysAsItIs) {
    const std::string far = "1e6 2 3 1000001 5 6";
    EXPECT_FALSE(nearCollada(""));
    EXPECT_FALSE(nearCollada("<COLLADA>"));
    EXPECT_FALSE(nearCollada(collada(node(""))));
    EXPECT_FALSE(nearCollada(collada(node("<translate>9000 0 0</translate>"))));
    // A turn or a scale in front of the place, or numbers that are none.
    for (const char * first :
         {"<rotate>0 0 1 90</rotate>", "<scale>2 2 2</scale>", "<translate>1e6 0</translate>",
          "<translate>1e6 0 x</translate>", "<matrix>1 2 3</matrix>"})
        EXPECT_FALSE(nearCollada(collada(node(std::string(first) + "<translate>1e6 0 0</translate>"), far)))
            << first;
    EXPECT_FALSE(nearCollada(collada(node(node("<scale>2 2 2</scale>")), far)));
    EXPECT_FALSE(nearCollada(collada(node(""), "1e6 2")));
    EXPECT_FALSE(nearCollada(collada(node(""), far, "<input semantic=\"NORMAL\" source=\"#p\"/>")));
}

TEST(FarModelsTest, DamagedTextsAreHarmless) {
    const std::string texts[] = {s_farObj, collada(node("<translate>1e6 0 0</translate>"))};
    std::mt19937 random(1);
    for (const std::string & text : texts) {
        for (std::size_t length = 0; length < text.size(); ++length) {
            nearObj(text.substr(0, length));
            nearCollada(text.substr(0, length));
        }
        for (int i = 0; i < 2000; ++i) {
            std::string changed = text;
            for (unsigned k = 0; k <= random() % 3; ++k)
                changed[random() % changed.size()] = static_cast<char>(random());
            nearObj(changed);
            nearCollada(changed);
        }
    }
}

namespace {

std::string ply(const std::string & format, const std::string & properties, const std::string & data,
                int vertices = 2) {
    return "ply\nformat " + format + " 1.0\nelement vertex " + std::to_string(vertices) + "\n" + properties +
           "element face 0\nproperty list uchar int vertex_indices\nend_header\n" + data;
}

const std::string s_xyz = "property float x\nproperty float y\nproperty float z\n";

template <class T> std::string bytesOf(const std::vector<T> & numbers) {
    return {reinterpret_cast<const char *>(numbers.data()), numbers.size() * sizeof(T)};
}

} // namespace

TEST(FarModelsTest, VerticesOfPlyLoseWhatTheyHaveInCommon) {
    const auto text = nearPly(ply("ascii", s_xyz + "property uchar red\n",
                                  "5800123.5 2 3 1000000\n\t5800124.25 2 3 7 \r\n3 0 1 1\n"));
    ASSERT_TRUE(text);
    EXPECT_EQ(text->origin, (Place{5800100, 0, 0}));
    EXPECT_EQ(text->text.substr(text->text.find("end_header")),
              "end_header\n23.5  2  3  1000000 \n24.25  2  3  7 \n3 0 1 1\n");
    const std::string doubles =
        "property uint8 a\nproperty double z\nproperty float64 y\nproperty double x\n";
    const std::string head = ply("binary_little_endian", doubles, "");
    const auto numbers = nearPly(head + 'a' + bytesOf<double>({1, 468123.5, 5800123.5}) + 'b' +
                                 bytesOf<double>({2, 468123.25, 1}) + "rest");
    ASSERT_TRUE(numbers);
    EXPECT_EQ(numbers->origin, (Place{5800100, 468100, 0}));
    EXPECT_EQ(numbers->text, head + 'a' + bytesOf<double>({1, 23.5, 23.5}) + 'b' +
                                 bytesOf<double>({2, 23.25, -5800099}) + "rest");
}

TEST(FarModelsTest, PlyThatIsNearOrNotPlainlyUnderstoodStaysAsItIs) {
    const std::string far = "5800000 0 0\n5800001 0 0\n";
    EXPECT_TRUE(nearPly(ply("ascii", s_xyz, far)));
    EXPECT_FALSE(nearPly(ply("ascii", s_xyz, "1 0 0\n5800001 0 0\n"))) << "near";
    EXPECT_FALSE(nearPly(ply("ascii", s_xyz, far, 3))) << "cut";
    EXPECT_FALSE(nearPly(ply("ascii", s_xyz, "5800000 0 0 1\n5800001 0 0\n")));
    EXPECT_FALSE(nearPly(ply("ascii", s_xyz, "5800000 0 nan\n5800001 0 0\n")));
    EXPECT_FALSE(nearPly(ply("ascii", "property float x\nproperty float y\n", "5800000 0\n5800001 0\n")));
    EXPECT_FALSE(nearPly(ply("ascii", s_xyz + "property list uchar int l\n", far)));
    EXPECT_FALSE(nearPly(ply("text", s_xyz, far)));
    EXPECT_FALSE(nearPly("obj" + ply("ascii", s_xyz, far)));
    EXPECT_FALSE(nearPly(""));
    const std::string doubles = "property double x\nproperty double y\nproperty double z\n";
    const std::string data = bytesOf<double>({5800000, 0, 0, 5800001, 0, 0});
    EXPECT_TRUE(nearPly(ply("binary_little_endian", doubles, data)));
    EXPECT_FALSE(nearPly(ply("binary_little_endian", doubles, data.substr(1)))) << "cut";
    EXPECT_FALSE(nearPly(ply("binary_little_endian", doubles, data, -1)));
    EXPECT_FALSE(nearPly(ply("binary_little_endian", s_xyz, data))) << "no more than single precision";
    EXPECT_FALSE(nearPly(ply("binary_little_endian", doubles + "property half h\n", data)));
    std::string many = ply("binary_little_endian", doubles, data);
    many.replace(many.find("vertex 2"), 8, "vertex 18446744073709551615");
    EXPECT_FALSE(nearPly(many));
}
