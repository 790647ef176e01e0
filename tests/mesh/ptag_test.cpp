// Polygon tags: shared records and their lifetime, the sorted per-polygon arrays, smoothing
// groups, mesh default tags, events, failures part way and several threads at once.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include <vexor/ptag.h>

#include "mesh_fixture.h"
#include "support/atomicity.h"
#include "support/in_order.h"

namespace vx::test {
namespace {

constexpr std::uint32_t kMatr = PTAG_MATERIAL;
constexpr std::uint32_t kPart = PTAG_PART;
constexpr std::uint32_t kSmgp = PTAG_SMOOTHING;
constexpr std::uint32_t kAaaa = VX_CODE4('A', 'A', 'A', 'A');
constexpr std::uint32_t kBbbb = VX_CODE4('B', 'B', 'B', 'B');
constexpr std::uint32_t kZzzz = VX_CODE4('Z', 'Z', 'Z', 'Z');

// A mesh with `n` triangles, each made by MeshNewPolygon (so with the default tags).
struct TagMesh {
    Mesh *mesh = MeshCreate();
    std::vector<MeshVertex *> v;
    std::vector<MeshPolygon *> p;
    explicit TagMesh(int n) {
        v = vertices(mesh, 3);
        for (int i = 0; i < n; ++i) p.push_back(MeshNewPolygon(mesh, kFace, 3, v.data(), 0));
    }
    ~TagMesh() { destroy_mesh(mesh); }
    TagMesh(const TagMesh &) = delete;
    TagMesh &operator=(const TagMesh &) = delete;
};

// A polygon's tags as "TYPE=text" in index order.
std::string tags(const MeshPolygon *polygon) {
    std::string out;
    for (int i = 0; i < static_cast<int>(PTagCount(polygon)); ++i) {
        std::uint32_t type = 0;
        const char *text = PTagGetByIndex(polygon, i, &type);
        for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>(type >> shift);
        out += "=" + std::string(text) + " ";
    }
    return out;
}

class PolygonTags : public MeshTest {};

TEST_F(PolygonTags, OneRecordIsSharedAndFreedWhenTheLastPolygonLetsGo) {
    const unsigned before = PTagRecordCount();
    {
        TagMesh m(1000);
        // Every polygon holds the default material and part: two records, used 1000 times each.
        EXPECT_EQ(in_order({PTagRecordCount() - before, PTagRecordUses(kMatr, "Default")}),
                  (Ints{2, 1000}));
        for (MeshPolygon *polygon : m.p) ASSERT_EQ(PTagSet(polygon, kMatr, "Wood"), 1);
        // The last polygon let go of the default material; the very text is shared.
        EXPECT_EQ(in_order({PTagRecordUses(kMatr, "Wood"), PTagRecordUses(kMatr, "Default"),
                            PTagRecordCount() - before}),
                  (Ints{1000, 0, 2}));
        EXPECT_EQ(PTagGet(m.p[0], kMatr), PTagGet(m.p[999], kMatr));

        for (std::size_t i = 0; i < 999; ++i) PTagDelete(m.p[i]);
        EXPECT_EQ(in_order({PTagRecordUses(kMatr, "Wood"), PTagRecordCount() - before}),
                  (Ints{1, 2}));
        PTagDelete(m.p[999]);
        EXPECT_EQ(in_order({PTagRecordUses(kMatr, "Wood"), PTagRecordCount() - before,
                            PTagCount(m.p[999])}),
                  (Ints{0, 0, 0}));
        EXPECT_EQ(PTagGet(m.p[999], kMatr), nullptr);
    }
    EXPECT_EQ(PTagRecordCount(), before);
}

TEST_F(PolygonTags, DestroyingTheMeshReleasesTheTagsOfLiveAndDeadPolygons) {
    const unsigned before = PTagRecordCount();
    auto *m = new TagMesh(3);
    PTagSet(m->p[0], kPart, "Arm");
    PTagSet(m->p[1], kPart, "Arm");
    // A deleted polygon keeps its tags while its mesh lives.
    ASSERT_EQ(MeshFreePolygon(m->mesh, m->p[1]), 1);
    EXPECT_STREQ(PTagGet(m->p[1], kPart), "Arm");
    // Its tags can no longer be changed, only deleted.
    EXPECT_EQ(in_order({PTagRecordUses(kPart, "Arm"), PTagSet(m->p[1], kPart, "Leg"),
                        PTagRecordUses(kPart, "Leg")}),
              (Ints{2, 0, 0}));
    // Another mesh sharing a record keeps it alive past the first mesh.
    TagMesh other(1);
    PTagSet(other.p[0], kPart, "Arm");
    delete m;
    EXPECT_EQ(in_order({PTagRecordUses(kPart, "Arm"), PTagRecordUses(kMatr, "Default"),
                        PTagRecordCount() - before}),
              (Ints{1, 1, 2}));
}

TEST_F(PolygonTags, ArraysStaySortedByTypeWithOneEntryPerType) {
    TagMesh m(0);
    MeshPolygon *p = MeshNewEmptyPolygon(m.mesh, kFace, 3);
    ASSERT_NE(p, nullptr);
    // Empty polygons are not given the default tags.
    EXPECT_EQ(PTagCount(p), 0u);
    EXPECT_EQ(PTagGet(p, kMatr), nullptr);
    EXPECT_EQ(PTagGetByIndex(p, 0, nullptr), nullptr);

    // Inserted at the end, the front, the middle, and growing past the pooled sizes.
    const std::pair<std::uint32_t, const char *> inserts[] = {
        {kPart, "body"}, {kZzzz, "z"}, {kAaaa, "a"}, {kMatr, "Wood"}, {kSmgp, "1"}, {kBbbb, ""}};
    for (const auto &[type, text] : inserts) ASSERT_EQ(PTagSet(p, type, text), 1) << text;
    EXPECT_EQ(tags(p), "AAAA=a BBBB= MATR=Wood PART=body SMGP=1 ZZZZ=z ");
    // Replacing keeps the count and the place.
    ASSERT_EQ(PTagSet(p, kMatr, "Steel"), 1);
    EXPECT_EQ(tags(p), "AAAA=a BBBB= MATR=Steel PART=body SMGP=1 ZZZZ=z ");
    EXPECT_EQ(PTagRecordUses(kMatr, "Wood"), 0);

    // Lookups before the first type, between two types and after the last find nothing.
    EXPECT_EQ(
        in_order({PTagGet(p, 1), PTagGet(p, VX_CODE4('M', 'A', 'T', 'Q')), PTagGet(p, 0xFFFFFFFF)}),
        (Ptrs{nullptr, nullptr, nullptr}));
    EXPECT_STREQ(PTagGet(p, kZzzz), "z");
    EXPECT_STREQ(PTagGet(p, kAaaa), "a");

    std::uint32_t type = 7;
    EXPECT_EQ(in_order({PTagGetByIndex(p, -1, &type), PTagGetByIndex(p, 6, &type)}),
              (Ptrs{nullptr, nullptr}));
    EXPECT_EQ(type, 7u);
    EXPECT_STREQ(PTagGetByIndex(p, 5, &type), "z");
    EXPECT_EQ(type, kZzzz);

    // A null text removes that type only; removing an absent type changes nothing.
    for (std::uint32_t t : {kSmgp, kAaaa, VX_CODE4('Q', 'Q', 'Q', 'Q')}) {
        ASSERT_EQ(PTagSet(p, t, nullptr), 1);
    }
    EXPECT_EQ(tags(p), "BBBB= MATR=Steel PART=body ZZZZ=z ");
    EXPECT_EQ(PTagRecordUses(kSmgp, "1"), 0);
    for (std::uint32_t t : {kBbbb, kMatr, kPart}) PTagSet(p, t, nullptr);
    EXPECT_EQ(tags(p), "ZZZZ=z ");
    PTagSet(p, kZzzz, nullptr);
    EXPECT_EQ(PTagCount(p), 0u);

    EXPECT_EQ(PTagSet(nullptr, kMatr, "x"), 0);
    EXPECT_EQ(PTagCount(nullptr), 0u);
    EXPECT_EQ(PTagGet(nullptr, kMatr), nullptr);
}

TEST_F(PolygonTags, SmoothingGroupsAreSortedDistinctCharactersAndDifferUnlessOneIsShared) {
    TagMesh m(4);
    PTagSet(m.p[0], kSmgp, "ba");
    PTagSet(m.p[1], kSmgp, "aab");
    EXPECT_STREQ(PTagGet(m.p[0], kSmgp), "ab");
    EXPECT_EQ(PTagGet(m.p[0], kSmgp), PTagGet(m.p[1], kSmgp));
    EXPECT_EQ(PTagRecordUses(kSmgp, "ab"), 2);
    // Other types keep their text as given.
    PTagSet(m.p[2], kMatr, "ba");
    EXPECT_STREQ(PTagGet(m.p[2], kMatr), "ba");

    // 200 distinct characters, given in descending order: the 127 smallest remain.
    std::string many;
    for (int c = 255; c >= 56; --c) many += static_cast<char>(c);
    PTagSet(m.p[2], kSmgp, many.c_str());
    std::string expected;
    for (int c = 56; c < 56 + 127; ++c) expected += static_cast<char>(c);
    EXPECT_EQ(std::string(PTagGet(m.p[2], kSmgp)), expected);
    EXPECT_STREQ(MeshDefaultTag(m.mesh, kSmgp), nullptr);

    MeshPolygon *grouped = m.p[0];
    MeshPolygon *plain = m.p[3];
    PTagSet(grouped, kSmgp, "ace");
    EXPECT_EQ(
        in_order({SMGPTagsAreDifferent(grouped, "e"), SMGPTagsAreDifferent(grouped, "zyxa"),
                  SMGPTagsAreDifferent(grouped, "bdf"), SMGPTagsAreDifferent(grouped, ""),
                  SMGPTagsAreDifferent(grouped, nullptr), SMGPTagsAreDifferent(plain, "a"),
                  SMGPTagsAreDifferent(plain, nullptr), SMGPTagsAreDifferent(nullptr, nullptr)}),
        (Ints{0, 0, 1, 1, 1, 1, 0, 0}));
    PTagSet(plain, kSmgp, "");
    EXPECT_EQ(in_order({SMGPTagsAreDifferent(plain, ""), SMGPTagsAreDifferent(plain, "a")}),
              (Ints{1, 1}));
}

TEST_F(PolygonTags, DuplicateSharesTheSourceRecordsAndReleasesTheTargets) {
    TagMesh a(2);
    TagMesh b(1);
    PTagSet(a.p[0], kMatr, "Gold");
    PTagSet(a.p[0], kSmgp, "3");
    PTagSet(b.p[0], kPart, "Only here");
    ASSERT_EQ(PTagDuplicate(b.p[0], a.p[0]), 1);
    EXPECT_EQ(tags(b.p[0]), "MATR=Gold PART=Default SMGP=3 ");
    EXPECT_EQ(PTagGet(b.p[0], kMatr), PTagGet(a.p[0], kMatr));
    EXPECT_EQ(in_order({PTagRecordUses(kMatr, "Gold"), PTagRecordUses(kPart, "Default"),
                        PTagRecordUses(kPart, "Only here")}),
              (Ints{2, 3, 0}));

    // From a polygon without tags nothing changes; onto itself neither.
    MeshPolygon *bare = MeshNewEmptyPolygon(a.mesh, kFace, 0);
    ASSERT_EQ(PTagDuplicate(b.p[0], bare), 1);
    ASSERT_EQ(PTagDuplicate(a.p[0], a.p[0]), 1);
    EXPECT_EQ(tags(b.p[0]), "MATR=Gold PART=Default SMGP=3 ");
    EXPECT_EQ(PTagRecordUses(kMatr, "Gold"), 2);
    // Onto a bare polygon, with more entries than the pooled arrays hold.
    for (char c = 'A'; c <= 'F'; ++c) PTagSet(a.p[1], VX_CODE4('X', 'X', 'X', c), "x");
    ASSERT_EQ(PTagDuplicate(bare, a.p[1]), 1);
    EXPECT_EQ(tags(bare), tags(a.p[1]));
    EXPECT_EQ(PTagRecordUses(VX_CODE4('X', 'X', 'X', 'C'), "x"), 2);
    EXPECT_EQ(in_order({PTagDuplicate(nullptr, a.p[0]), PTagDuplicate(bare, nullptr)}),
              (Ints{0, 0}));
}

TEST_F(PolygonTags, NewPolygonsGetTheMeshDefaultsInTypeOrder) {
    TagMesh m(1);
    EXPECT_STREQ(MeshDefaultTag(m.mesh, kMatr), MeshDefaultMaterialName());
    EXPECT_STREQ(MeshDefaultTag(m.mesh, kPart), MeshDefaultPartName());
    EXPECT_STREQ(MeshDefaultMaterialName(), "Default");
    EXPECT_EQ(tags(m.p[0]), "MATR=Default PART=Default ");

    // A default of a type below the others goes first on the polygon, whatever the list order.
    ASSERT_EQ(
        in_order({MeshSetDefaultTag(m.mesh, kSmgp, "ba"), MeshSetDefaultTag(m.mesh, kAaaa, "first"),
                  MeshSetDefaultTag(m.mesh, kMatr, "Brick")}),
        (Ints{1, 1, 1}));
    EXPECT_STREQ(MeshDefaultTag(m.mesh, kSmgp), "ab");
    MeshPolygon *p = MeshNewPolygon(m.mesh, kFace, 3, m.v.data(), 0);
    EXPECT_EQ(tags(p), "AAAA=first MATR=Brick PART=Default SMGP=ab ");
    // Earlier polygons keep theirs.
    EXPECT_EQ(tags(m.p[0]), "MATR=Default PART=Default ");

    // An instance starts from its source's defaults and then goes its own way.
    Mesh *instance = MeshCreateInstance(m.mesh, 1);
    ASSERT_NE(instance, nullptr);
    EXPECT_STREQ(MeshDefaultTag(instance, kMatr), "Brick");
    ASSERT_EQ(in_order({MeshSetDefaultTag(instance, kMatr, nullptr),
                        MeshSetDefaultTag(instance, kPart, nullptr)}),
              (Ints{1, 1}));
    EXPECT_EQ(MeshDefaultTag(instance, kMatr), nullptr);
    EXPECT_STREQ(MeshDefaultTag(m.mesh, kMatr), "Brick");
    MeshPolygon *q = MeshNewPolygon(instance, kFace, 3, m.v.data(), 0);
    EXPECT_EQ(tags(q), "AAAA=first SMGP=ab ");
    destroy_mesh(instance);

    // Without defaults a new polygon has no tags.
    for (std::uint32_t t : {kAaaa, kMatr, kPart, kSmgp}) MeshSetDefaultTag(m.mesh, t, nullptr);
    EXPECT_EQ(PTagCount(MeshNewPolygon(m.mesh, kFace, 3, m.v.data(), 0)), 0u);
    EXPECT_EQ(MeshSetDefaultTag(nullptr, kMatr, "x"), 0);
    EXPECT_EQ(MeshDefaultTag(nullptr, kMatr), nullptr);
}

// The mesh remembers its default records between polygons; once a record was freed (and its
// memory possibly reused by another record) the next polygon must still get the right text.
TEST_F(PolygonTags, DefaultsSurviveTheirRecordsBeingFreedAndRemade) {
    TagMesh m(1);
    ASSERT_EQ(MeshSetDefaultTag(m.mesh, kMatr, "Clay"), 1);
    for (int round = 0; round < 4; ++round) {
        MeshPolygon *p = MeshNewPolygon(m.mesh, kFace, 3, m.v.data(), 0);
        EXPECT_STREQ(PTagGet(p, kMatr), "Clay");
        EXPECT_EQ(PTagRecordUses(kMatr, "Clay"), 1);
        PTagSet(p, kMatr, nullptr);  // frees "Clay"
        EXPECT_EQ(PTagRecordUses(kMatr, "Clay"), 0);
        PTagSet(p, kMatr, ("Other " + std::to_string(round)).c_str());
    }
}

TEST_F(PolygonTags, ChangesAreAnnouncedAsTagChanges) {
    TagMesh m(1);
    EventLog log(MeshEventPort(m.mesh));
    // A new polygon announces itself only.
    MeshNewPolygon(m.mesh, kFace, 3, m.v.data(), 0);
    EXPECT_EQ(log.masks(), std::vector<std::uint32_t>{MESH_CHANGE_POLYGONS});
    PTagSet(m.p[0], kMatr, "Wood");
    PTagSet(m.p[0], kMatr, "Wood");   // no change
    PTagSet(m.p[0], kSmgp, nullptr);  // none to remove
    PTagSet(m.p[0], kPart, nullptr);
    EXPECT_EQ(log.masks(), (std::vector<std::uint32_t>{MESH_CHANGE_TAGS, MESH_CHANGE_TAGS}));
    MeshBatchBegin(m.mesh);
    PTagDuplicate(m.p[0], MeshPolByIndex(m.mesh, 1));
    PTagDelete(m.p[0]);
    PTagDelete(m.p[0]);  // no tags left
    EXPECT_EQ(log.count(), 0u);
    MeshBatchEnd(m.mesh);
    EXPECT_EQ(log.masks(), std::vector<std::uint32_t>{MESH_CHANGE_TAGS});
}

// ---- Failures part way ------------------------------------------------------------------

class TagTarget : public AtomicityTarget {
  public:
    using Edit = std::function<bool(TagMesh &)>;
    TagTarget(int polygons, const Edit &setup, Edit edit) : m_(polygons), edit_(std::move(edit)) {
        if (setup) setup(m_);
        log_ = std::make_unique<EventLog>(MeshEventPort(m_.mesh));
    }
    std::string snapshot() override {
        std::string out = "records " + std::to_string(PTagRecordCount()) + " polygons " +
                          std::to_string(MeshNumPols(m_.mesh)) + " |";
        for (unsigned i = 0; MeshPolygon *p = MeshPolByIndex(m_.mesh, i); ++i) {
            out += " " + tags(p) + "|";
            for (int k = 0; k < static_cast<int>(PTagCount(p)); ++k) {
                std::uint32_t type = 0;
                const char *text = PTagGetByIndex(p, k, &type);
                out += std::to_string(PTagRecordUses(type, text)) + ",";
            }
        }
        for (std::uint32_t t : {kMatr, kPart, kSmgp}) {
            const char *d = MeshDefaultTag(m_.mesh, t);
            out += d != nullptr ? std::string(" d=") + d : std::string(" d-");
        }
        return out;
    }
    bool edit() override { return edit_(m_); }
    std::size_t events() override { return log_->count(); }

  private:
    TagMesh m_;
    Edit edit_;
    std::unique_ptr<EventLog> log_;
};

AtomicityFactory tag_factory(int polygons, TagTarget::Edit setup, TagTarget::Edit edit) {
    return [=] { return std::make_unique<TagTarget>(polygons, setup, edit); };
}

TEST_F(PolygonTags, FailedEditsLeaveTagsAndRecordsAsTheyWere) {
    const auto none = TagTarget::Edit();
    // A new record and a larger array, at each pooled size and past them.
    for (int extra = 0; extra < 5; ++extra) {
        const auto setup = [extra](TagMesh &m) {
            for (int k = 0; k < extra; ++k) PTagSet(m.p[0], VX_CODE4('E', 'X', 'T', 'A' + k), "e");
            return true;
        };
        const AtomicityReport report = check_atomicity(
            "PTagSet insert " + std::to_string(extra),
            tag_factory(2, setup, [](TagMesh &m) { return PTagSet(m.p[0], kSmgp, "cab") == 1; }));
        EXPECT_GE(report.tried, 1u);
    }
    check_atomicity("PTagSet replace",
                    tag_factory(2, none, [](TagMesh &m) { return PTagSet(m.p[1], kMatr, "New"); }));
    check_atomicity("PTagDuplicate",
                    tag_factory(
                        2,
                        [](TagMesh &m) {
                            for (char c = 'A'; c <= 'E'; ++c) {
                                PTagSet(m.p[0], VX_CODE4('D', 'U', 'P', c), "d");
                            }
                            return true;
                        },
                        [](TagMesh &m) { return PTagDuplicate(m.p[1], m.p[0]) == 1; }));
    check_atomicity("MeshSetDefaultTag", tag_factory(1, none, [](TagMesh &m) {
                        return MeshSetDefaultTag(m.mesh, kSmgp, "zz") == 1;
                    }));
    // A new polygon whose default records must be made (and its array taken) on the way.
    for (const char *text : {"Default", "Fresh"}) {
        check_atomicity(std::string("MeshNewPolygon with default ") + text,
                        tag_factory(
                            16,
                            [text](TagMesh &m) {
                                MeshSetDefaultTag(m.mesh, kSmgp, "q");
                                MeshSetDefaultTag(m.mesh, kMatr, text);
                                MeshSetDefaultTag(m.mesh, kAaaa, "a");
                                return true;
                            },
                            [](TagMesh &m) {
                                return MeshNewPolygon(m.mesh, kFace, 3, m.v.data(), 0) != nullptr;
                            }));
    }
}

// ---- Threads ----------------------------------------------------------------------------

TEST_F(PolygonTags, MeshesOnSeveralThreadsShareRecordsSafely) {
    const unsigned before = PTagRecordCount();
    constexpr int kThreads = 4;
    constexpr int kPolygons = 300;
    const char *texts[] = {"Red", "Green", "Blue"};
    std::vector<Mesh *> meshes(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            Mesh *mesh = MeshCreate();
            meshes[static_cast<std::size_t>(t)] = mesh;
            // Only the shared records are under test: the meshes keep their events to
            // themselves rather than all announcing on the one process-wide port at once.
            MeshHoldEvents(mesh);
            std::vector<MeshVertex *> v = vertices(mesh, 3);
            for (int round = 0; round < 20; ++round) {
                for (int i = 0; i < kPolygons / 20; ++i) {
                    MeshPolygon *p = MeshNewPolygon(mesh, kFace, 3, v.data(), 0);
                    PTagSet(p, kMatr, texts[(i + t) % 3]);
                }
                // Churn: every polygon so far changes text, and some let go altogether.
                for (unsigned i = 0; MeshPolygon *p = MeshPolByIndex(mesh, i); ++i) {
                    PTagSet(p, kMatr, texts[(i + static_cast<unsigned>(round)) % 3]);
                    if (round == 19 && i % 2 == 1) PTagDelete(p);
                }
            }
        });
    }
    for (std::thread &thread : threads) thread.join();
    // Each survivor (the even indices) holds one material; the odd ones hold nothing.
    std::int32_t uses = 0;
    for (const char *text : texts) uses += PTagRecordUses(kMatr, text);
    EXPECT_EQ(uses, kThreads * kPolygons / 2);
    EXPECT_EQ(PTagRecordUses(kPart, "Default"), kThreads * kPolygons / 2);
    for (Mesh *mesh : meshes) destroy_mesh(mesh);
    EXPECT_EQ(PTagRecordCount(), before);
}

}  // namespace
}  // namespace vx::test
