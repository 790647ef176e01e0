// Writes the seed corpus of the scene-load fuzz target into a directory:
//   vexor_make_scene_load_corpus fuzz/corpus/scene_load
// Files named valid_* must load (CinemaLoadAccess gives a scene); files named corrupt_* must be
// refused. The corpus test checks both. Scenes are made in the session of scene_load_check.h.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <string>
#include <vector>

#include <vexor/env.h>
#include <vexor/undo.h>
#include <vexor/xfrm.h>

#include "fuzz/corpus_file.h"
#include "fuzz/scene_load_check.h"

namespace {

using vx::fuzz::Bytes;

// A scene with items of every kind of link and entries of every kind of value.
Cinema *full_scene() {
    Cinema *scene = CinemaCreate(3);
    const std::uint32_t item = CineLookupType("fzItem");
    CineItem *a = CineItemCreate(scene, item);
    CineItem *b = CineItemCreate(scene, item);
    CineItem *c = CineItemCreate(scene, CineLookupType("fzSub"));
    CineItemSetName(a, "Light");
    CineItemSetName(b, "Light");
    CineItemSetParent(b, a, -1);
    CineItemSetParent(c, a, 0);
    CineItemSetSource(c, b);
    CineItemSetHidden(b, 1);
    CineItemSetTag(a, 0x4E4F5445u, "note");
    CineItemAddPackage(c, CinePackageFind("fzExtra"));

    CineAction *setup = CineActionGetDefault(scene, CINE_ACTION_SETUP);
    CineAction *edit = CineActionGetDefault(scene, CINE_ACTION_EDIT);
    const double matrix[16] = {2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 1, 2, 3, 1};
    CineActionSetConstant(setup, a, 0, 0.1);
    CineActionSetConstantInt(setup, a, 2, -7);
    CineActionSetConstantText(setup, b, 3, "label");
    CineActionSetConstantMatrix(setup, c, 4, matrix);
    CineActionSetState(edit, a, 0, CINE_STATE_REMOVED, nullptr);
    Envelope *env = EnvCreate(nullptr);
    EnvSetPreBehavior(env, ENV_BEHAVIOR_REPEAT);
    EnvSetPostBehavior(env, ENV_BEHAVIOR_LINEAR);
    EnvAddKey(env, 0.0, 1.0);
    EnvKey *broken = EnvAddKey(env, 1.0, 2.0);
    EnvKeyBreak(env, broken, ENV_BREAK_VALUE);
    EnvKeySetTangentValue(env, broken, 1, 4.0);
    CineActionSetEnvelope(CineActionGetDefault(scene, CINE_ACTION_SCENE), b, 1, env);
    Envelope *ints = EnvCreateInt(nullptr);
    EnvAddKeyInt(ints, 0.5, 3);
    CineActionSetEnvelope(setup, c, 2, ints);
    CineAction *walk = CineActionCreate(scene, "walk", 5, setup);
    CineActionSetEnable(walk, 0);
    CineActionAddParent(edit, walk, -1);
    CineActionSetConstant(walk, c, 6, 2.5);  // e0 of the add-on package
    return scene;
}

// A locator under another, placed by standard chains with a pivot pair and a user's shear.
Cinema *transform_scene() {
    Cinema *scene = CinemaCreate(0);
    CineItem *parent = CineItemCreate(scene, XFRM_TYPE_LOCATOR);
    CineItem *child = CineItemCreate(scene, XFRM_TYPE_CAMERA);
    CineItemSetParent(child, parent, -1);
    for (int kind : {XFRM_KIND_TRANSLATION, XFRM_KIND_ROTATION, XFRM_KIND_PIVOT}) {
        XfrmGetStdTransform(parent, kind, 1);
        XfrmGetStdTransform(child, kind, 1);
    }
    XfrmAddTransformItem(child, XFRM_TYPE_SHEAR);
    CineAction *setup = CineActionGetDefault(scene, CINE_ACTION_SETUP);
    CineActionSetConstant(setup, XfrmGetStdTransform(child, XFRM_KIND_PIVOT, 0), 3, 1.5);
    CineActionSetConstantInt(setup, child, 10, 0);  // inheritRot off
    return scene;
}

// A character's group with members and a channel member, two clips of which one is active, a
// disabled pose, and a clip whose action has gone.
Cinema *groups_scene() {
    Cinema *scene = CinemaCreate(0);
    CineItem *group = CineItemCreate(scene, GROUP_TYPE_CODE);
    CineItem *body = CineItemCreate(scene, CineLookupType("fzItem"));
    CineItem *walk = CineItemCreate(scene, ACTIONCLIP_TYPE_CODE);
    CineItem *jump = CineItemCreate(scene, ACTIONCLIP_TYPE_CODE);
    CineItem *pose = CineItemCreate(scene, CineLookupType("actionpose"));
    CineItem *lost = CineItemCreate(scene, ACTIONCLIP_TYPE_CODE);
    CineItemSetName(walk, "walk");
    CineItemSetName(jump, "jump");
    GroupSetType(group, GROUP_KIND_ACTOR);
    for (CineItem *member : {body, walk, jump, pose}) GroupAddItem(group, member);
    GroupAddChannel(group, body, 1);
    ActionClipAddItem(walk, group, body);
    ActionClipAddItem(jump, group, body);
    CineActionSetConstant(ActionClipAction(walk), body, 0, 2.0);
    ActionClipSetActive(walk, group, 1);
    ActionClipSetEnabled(pose, 0);
    CineActionDestroy(ActionClipAction(lost));
    return scene;
}

// Hand-made streams, for what the saver never writes.
class Stream {
  public:
    Stream() : writer_(BlkWriterOpenMemory()) {}
    ~Stream() { BlkWriterClose(writer_); }
    Stream &begin(unsigned int id) {
        BlkWriteBlock(writer_, id);
        return *this;
    }
    Stream &end() {
        BlkWriteEnd(writer_);
        return *this;
    }
    Stream &u32(unsigned int value) {
        BlkWriteU4(writer_, &value, 1);
        return *this;
    }
    Stream &f64(double value) {
        std::uint64_t bits;
        std::memcpy(&bits, &value, sizeof bits);
        return u32(static_cast<unsigned int>(bits)).u32(static_cast<unsigned int>(bits >> 32));
    }
    Stream &f32(float value) {
        BlkWriteFP(writer_, &value, 1);
        return *this;
    }
    // Length, then the bytes in little-endian words, zero-filled.
    Stream &text(const std::string &text) {
        u32(static_cast<unsigned int>(text.size()));
        for (std::size_t at = 0; at < text.size(); at += 4) {
            unsigned char word[4] = {};
            std::memcpy(word, text.data() + at, text.size() - at < 4 ? text.size() - at : 4);
            unsigned int value = 0;
            for (int b = 3; b >= 0; --b) value = (value << 8) | word[b];
            u32(value);
        }
        return *this;
    }
    Stream &head(unsigned int major = 1) { return begin(201).u32(major).u32(0).u32(0).end(); }
    Stream &package(const char *name) { return begin(202).text(name).end(); }
    Stream &item(unsigned int type, const char *name) {
        return begin(203).u32(type).u32(1).u32(0xFFFFFFFFu).text(name).end();
    }
    Bytes bytes() const {
        std::size_t size = 0;
        const auto *data = static_cast<const unsigned char *>(BlkWriterMemoryData(writer_, &size));
        return Bytes(data, data + size);
    }

  private:
    BlkWriter *writer_;
};

// An envelope entry of item 0's channel "y" in the current action block, with keys given as
// (time, value) pairs in the order given.
// An envelope entry of channel "y" with (time, value) keys; the settings and slope type may be
// out of range, as a damaged file holds them.
void envelope_entry(Stream &s, std::initializer_list<float> keys, std::uint32_t interpolation = 1,
                    std::uint32_t post = 1, std::uint32_t slope_type = 1) {
    s.begin(302).u32(0).u32(0).text("y").u32(CINE_STATE_ENVELOPE).u32(0).u32(interpolation);
    s.u32(post);
    for (auto k = keys.begin(); k != keys.end() && k + 1 != keys.end(); k += 2) {
        s.begin(2).f32(k[0]).u32(0).u32(slope_type).f32(k[1]).f32(0.0f).f32(0.0f).end();
    }
    s.end();
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <corpus directory>\n", argv[0]);
        return 2;
    }
    const std::string dir = argv[1];
    UndoSysStartup();
    vx::fuzz::start_session();
    int failures = 0;
    auto keep = [&](const char *name, const Bytes &bytes) {
        if (bytes.empty() || !vx::fuzz::write_corpus_file(dir, name, bytes)) ++failures;
    };

    Cinema *full = full_scene();
    const Bytes full_bytes = vx::fuzz::save_to_memory(full);
    keep("valid_full.vxr", full_bytes);
    CinemaDestroy(full);
    Cinema *groups = groups_scene();
    keep("valid_groups_and_clips.vxr", vx::fuzz::save_to_memory(groups));
    CinemaDestroy(groups);
    Cinema *empty = CinemaCreate(0);
    keep("valid_empty.vxr", vx::fuzz::save_to_memory(empty));
    CinemaDestroy(empty);

    {  // Blocks and clients of a later version, which a reader passes over.
        Stream s;
        s.begin(200).head().begin(299).begin(7).u32(1).end().end().package("fzItem");
        s.begin(203).u32(0).u32(0x81).u32(2).text("").begin(209).u32(5).end().end();
        s.begin(208).text("later").u32(12).end();
        s.begin(208).text("action").begin(300).text("extra").u32(4).u32(1);
        s.begin(302).u32(0).u32(0).text("x").u32(CINE_STATE_CONSTANT).u32(0).f64(-3.0).u32(7).end();
        s.end().end().end();
        keep("valid_later_version.vxr", s.bytes());
    }
    {  // Items of a type this session lacks, with a child and entries that refer to them.
        Stream s;
        s.begin(200).head().package("noSuchType").package("fzItem").package("noSuchAddOn");
        s.item(0, "ghost").begin(203).u32(1).u32(1).u32(1).text("kept");
        s.begin(204).u32(2).end().end();
        s.begin(206).u32(1).u32(0).end().begin(207).u32(1).u32(0).end();
        s.begin(208).text("action").begin(300).text("setup").u32(0).u32(1);
        s.begin(302).u32(0).u32(0).text("x").u32(CINE_STATE_REMOVED).end();
        s.begin(302).u32(1).u32(2).text("q").u32(CINE_STATE_REMOVED).end();
        s.begin(302).u32(1).u32(1).text("gone").u32(CINE_STATE_REMOVED).end();
        s.begin(302).u32(1).u32(1).text("x").u32(CINE_STATE_CONSTANT).u32(1).u32(5).end();
        s.end().end().end();
        keep("valid_missing_packages.vxr", s.bytes());
    }

    Cinema *placed = transform_scene();
    keep("valid_transforms.vxr", vx::fuzz::save_to_memory(placed));
    CinemaDestroy(placed);
    {  // One transform in the chains of two locators.
        Stream s;
        s.begin(200).head().package("locator").package("translation");
        s.item(0, "a").item(0, "b").item(1, "t");
        s.begin(208).text("xfrm").begin(400).u32(2).u32(0).end().begin(400).u32(2).u32(1).end();
        s.end().end();
        keep("corrupt_transform_in_two_chains.vxr", s.bytes());
    }

    keep("corrupt_truncated.vxr", Bytes(full_bytes.begin(), full_bytes.end() - 9));
    keep("corrupt_no_scene.vxr", Stream().begin(7).u32(1).end().bytes());
    {
        Stream s;
        s.begin(200).head(2).end();
        keep("corrupt_next_major_version.vxr", s.bytes());
    }
    {
        Stream s;
        s.begin(200).package("fzItem").head().end();
        keep("corrupt_head_not_first.vxr", s.bytes());
    }
    {
        Stream s;
        s.begin(200).head().package("fzItem").item(3, "a").end();
        keep("corrupt_package_not_read.vxr", s.bytes());
    }
    {
        Stream s;
        s.begin(200).head().package("fzItem").begin(202).u32(100).u32(0).end().end();
        keep("corrupt_text_past_block.vxr", s.bytes());
    }
    {
        Stream s;
        s.begin(200).head().begin(202).text(std::string("fz\0Item", 7)).end().end();
        keep("corrupt_null_in_text.vxr", s.bytes());
    }
    {
        Stream s;
        s.begin(200).head().package("fzItem").item(0, "a").item(0, "b");
        s.begin(207).u32(0).u32(1).end().begin(207).u32(1).u32(0).end().end();
        keep("corrupt_source_loop.vxr", s.bytes());
    }
    {
        Stream s;
        s.begin(200).head().package("fzItem").item(0, "a");
        s.begin(208).text("action").begin(300).text("edit").u32(9).u32(1);
        envelope_entry(s, {1.0f, 1.0f, 0.5f, 2.0f});
        s.end().end().end();
        keep("repaired_keys_out_of_order.vxr", s.bytes());
    }
    {
        Stream s;
        s.begin(200).head().package("fzItem").item(0, "a");
        s.begin(208).text("action").begin(300).text("edit").u32(9).u32(1);
        envelope_entry(s, {0.0f, 1.0f, std::numeric_limits<float>::quiet_NaN(), 2.0f}, 7, 99, 0x77);
        s.end().end().end();
        keep("repaired_settings_out_of_range.vxr", s.bytes());
    }
    {
        Stream s;
        s.begin(200).head().package("fzItem").item(0, "a");
        s.begin(208).text("action").begin(300).text("walk").u32(5).u32(1);
        s.begin(301).u32(4).end().end().end().end();
        keep("corrupt_parent_not_in_file.vxr", s.bytes());
    }
    {
        Stream s;
        s.begin(200).head().package("fzItem").item(0, "a");
        s.begin(208).text("action").begin(300).text("walk").u32(5).u32(1).end();
        s.begin(300).text("WALK").u32(5).u32(1).end().end().end();
        keep("corrupt_two_actions_of_one_name.vxr", s.bytes());
    }

    {
        Stream s;
        s.begin(200).head().package("fzItem").item(0, "a").item(0, "b");
        s.begin(208).text("group").begin(420).u32(0).u32(1).end().end().end();
        keep("corrupt_members_of_no_group.vxr", s.bytes());
    }
    {
        Stream s;
        s.begin(200).head().package("group").item(0, "g");
        s.begin(208).text("group").begin(420).u32(0).u32(0).end().end().end();
        keep("corrupt_group_among_its_members.vxr", s.bytes());
    }
    {
        Stream s;
        s.begin(200).head().package("group").package("fzItem").item(0, "g").item(1, "a");
        s.begin(208).text("group").begin(421).u32(0).u32(1).u32(1).text("y").end();
        s.begin(421).u32(0).u32(1).u32(1).text("y").end().end().end();
        keep("corrupt_member_listed_twice.vxr", s.bytes());
    }

    vx::fuzz::stop_session();
    UndoSysShutdown();
    if (failures > 0) std::fprintf(stderr, "could not write the corpus into %s\n", dir.c_str());
    return failures > 0 ? 1 : 0;
}
