// Unique names, index styles and finding items by text, as a host uses them.
#include <string>
#include <vector>

#include <vexor/undo.h>

#include "scene_fixture.h"

namespace vx::test {
namespace {

std::vector<std::string> unique_names(const std::vector<CineItem *> &items) {
    std::vector<std::string> names;
    for (CineItem *item : items) names.emplace_back(CineItemUniqueName(item));
    return names;
}

TEST_F(SceneTest, ItemsOfOneNameAreToldApartInEveryIndexStyle) {
    std::vector<CineItem *> lights;
    for (int i = 0; i < 3; ++i) lights.push_back(named_item(scene, light, "Light"));
    EXPECT_EQ(unique_names(lights), (std::vector<std::string>{"Light", "Light (2)", "Light (3)"}));

    db.events.clear();
    CinemaSetIndexStyle(3);
    EXPECT_EQ(db.data_of(CINE_EVENT_ITEM_NAME),
              (std::vector<void *>{lights[0], lights[1], lights[2]}));
    EXPECT_EQ(unique_names(lights), (std::vector<std::string>{"Light", "Light_2", "Light_3"}));

    const std::pair<int, std::vector<std::string>> styles[] = {
        {1, {"Light", "Light(2)", "Light(3)"}},
        {2, {"Light", "Light 2", "Light 3"}},
        {4, {"Light", "Light2", "Light3"}},
    };
    for (const auto &[style, names] : styles) {
        CinemaSetIndexStyle(style);
        EXPECT_EQ(unique_names(lights), names) << style;
    }
    CinemaSetIndexStyle(9);  // no such style: kept
    EXPECT_EQ(CinemaIndexStyle(), 4);

    char buffer[8];
    EXPECT_STREQ(CinemaAppendIndex("Camera", 12, buffer, sizeof buffer), "Camera1");
    CinemaSetIndexStyle(0);
    EXPECT_STREQ(CinemaAppendIndex("Cam", 2, buffer, sizeof buffer), "Cam (2)");
}

TEST_F(SceneTest, ItemsWithoutANameGoByTheirTypeAndKeepTheirNumber) {
    CineItem *a = CineItemCreate(scene, mesh);
    CineItem *b = CineItemCreate(scene, mesh);
    EXPECT_STREQ(CineItemUniqueName(b), "tstMesh");  // asked first, so it is the first
    EXPECT_STREQ(CineItemUniqueName(a), "tstMesh (2)");
    EXPECT_STREQ(CineItemUniqueName(nullptr), "*bad*");

    // Renaming frees the name and starts the renamed item's numbering afresh; undo gives the
    // old name and number back.
    own.events.clear();
    ASSERT_EQ(CineItemSetName(b, "Body"), 1);
    EXPECT_EQ(own.count(CINE_EVENT_ITEM_NAME), 1u);
    EXPECT_STREQ(CineItemUniqueName(b), "Body");
    EXPECT_STREQ(CineItemUniqueName(a), "tstMesh (2)") << "a cached name stays";
    CineItemInvalidateName(a);
    EXPECT_STREQ(CineItemUniqueName(a), "tstMesh (2)") << "the number is kept while free";
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(CineItemName(b), nullptr);
    EXPECT_STREQ(CineItemUniqueName(b), "tstMesh") << "its number was free again";
}

TEST_F(SceneTest, LookupFindsIdentityUniqueNameAndTypeIndex) {
    CineItem *first = named_item(scene, light, "Key");
    CineItem *m = CineItemCreate(scene, mesh);
    CineItem *second = named_item(scene, light, "Key");
    CineItem *base = CineItemCreate(scene, object);
    ASSERT_NE(base, nullptr);

    EXPECT_EQ(CineLookupItem(scene, CineItemIdent(m)), m);
    // Unique names are made on demand, for every item at once.
    EXPECT_EQ(CineLookupItem(scene, "Key (2)"), second);
    EXPECT_EQ(CineLookupItem(scene, "Key"), first);
    // "<type>[n]" counts through the type's list and its subtypes' lists in scene order:
    // the lights (two), then the mesh, then the plain object.
    EXPECT_EQ(CineLookupItem(scene, "tstObject[1]"), second);
    EXPECT_EQ(CineLookupItem(scene, "tstObject[2]"), m);
    EXPECT_EQ(CineLookupItem(scene, "tstObject[3]"), base);
    EXPECT_EQ(CineLookupItem(scene, "tstObject[4]"), nullptr);
    EXPECT_EQ(CineLookupItem(scene, "tstLight[0]"), first);
    EXPECT_EQ(CineLookupItem(scene, "tstExtra[0]"), nullptr) << "not a type";
    EXPECT_EQ(CineLookupItem(scene, "nothing[0]"), nullptr);
    EXPECT_EQ(CineLookupItem(scene, "tstLight_0"), nullptr);
    EXPECT_TRUE(lines.empty());

    // A text of hexadecimal digits is an old numeric code: refused, and said so.
    EXPECT_EQ(CineLookupItem(scene, "0x1F"), nullptr);
    EXPECT_EQ(CineLookupItem(scene, "beef"), nullptr);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1].rfind("#[fail] <item_names>:", 0), 0u) << lines[1];
    EXPECT_NE(lines[1].find(" legacy numeric item code ignored: beef\n"), std::string::npos);
    // Unless an item is named so.
    CineItem *named = named_item(scene, object, "beef");
    EXPECT_EQ(CineLookupItem(scene, "beef"), named);
}

TEST_F(SceneTest, UndoneItemsAreNotFound) {
    CineItem *item = named_item(scene, light, "Fill");
    const std::string ident = CineItemIdent(item);
    ASSERT_TRUE(UndoSysUndo());  // the name
    ASSERT_TRUE(UndoSysUndo());  // the item
    EXPECT_EQ(CinemaItemCount(scene), 0u);
    EXPECT_EQ(CineLookupItem(scene, ident.c_str()), nullptr);
    EXPECT_EQ(CineLookupItem(scene, "tstLight[0]"), nullptr);
    ASSERT_TRUE(UndoSysRedo());
    EXPECT_EQ(CineLookupItem(scene, ident.c_str()), item);
    EXPECT_EQ(CineLookupItem(scene, "tstLight[0]"), item);
    EXPECT_EQ(CineLookupItem(scene, "tstLight"), item);
}

}  // namespace
}  // namespace vx::test
