// The key access object as a host uses it: walking keys, reading them by side, the codes of
// mismatched types and refused edits, losing the current key to removals (heard on the port,
// or noticed without one), its listener's life, and its edits through undo and failure.

#include <cmath>
#include <functional>
#include <limits>
#include <memory>

#include <vexor/failure.h>
#include <vexor/sys/component.h>
#include <vexor/sys/key_access.h>

#include "env_fixture.h"
#include "support/alloc_injection.h"
#include "support/atomicity.h"

namespace vx::test {
namespace {

// A key access object and its table, holding one reference.
struct Cursor {
    explicit Cursor(Envelope *env) {
        EXPECT_EQ(EnvKeyAccessCreate(env, &obj), VX_OK);
        void *table = nullptr;
        EXPECT_EQ(XObjectQueryInterface(obj, ENV_KEY_ACCESS_GUID, &table), VX_OK);
        m = static_cast<const EnvKeyAccessMethods *>(table);
        XObjectRelease(obj);  // the query's reference
    }
    ~Cursor() { XObjectRelease(obj); }
    Cursor(const Cursor &) = delete;
    Cursor &operator=(const Cursor &) = delete;

    // The current key's time, or not a number without one.
    double time() const {
        double t = 0.0;
        return m->Time(obj, &t) == VX_OK ? t : std::numeric_limits<double>::quiet_NaN();
    }
    bool has_key() const { return !std::isnan(time()); }
    // The time a move reached, or not a number when it failed.
    double moved(unsigned int rc) const {
        return rc == VX_OK ? time() : std::numeric_limits<double>::quiet_NaN();
    }

    void *obj = nullptr;
    const EnvKeyAccessMethods *m = nullptr;
};

class KeyAccess : public UndoTest {
  protected:
    void SetUp() override {
        UndoTest::SetUp();
        fill(e.env);
        e.notes.take();
    }
    ListenedEnvelope e;
    Cursor c{e.env};  // released before the envelope and its port
};

TEST_F(KeyAccess, WalksTheKeysInTimeOrderAndStaysPutWhenAMoveFails) {
    const auto *m = c.m;
    EXPECT_EQ(m->Next(c.obj), VX_E_NOTFOUND) << "no current key yet";
    EXPECT_FALSE(c.has_key());

    std::vector<double> walked;
    for (unsigned int rc = m->First(c.obj); rc == VX_OK; rc = m->Next(c.obj)) {
        walked.push_back(c.time());
    }
    EXPECT_EQ(walked, (std::vector<double>{0.0, 1.0, 2.0, 3.0}));
    EXPECT_EQ(c.time(), 3.0) << "a move past the end leaves the cursor on the last key";
    EXPECT_EQ(c.moved(m->Previous(c.obj)), 2.0);
    EXPECT_EQ(c.moved(m->Last(c.obj)), 3.0);
    EXPECT_EQ(c.moved(m->Find(c.obj, 1.00009)), 1.0);
    EXPECT_EQ(m->Find(c.obj, 1.5), VX_E_NOTFOUND);
    EXPECT_EQ(c.time(), 1.0);
    EXPECT_EQ(c.moved(m->FindAfter(c.obj, 1.0)), 2.0);
    EXPECT_EQ(c.moved(m->FindBefore(c.obj, 1.0)), 0.0);
    EXPECT_EQ(m->Previous(c.obj), VX_E_NOTFOUND);
    EXPECT_EQ(m->FindAfter(c.obj, 3.0), VX_E_NOTFOUND);
    EXPECT_EQ(c.time(), 0.0);
    unsigned int n = 0;
    EXPECT_EQ(m->Count(c.obj, &n), VX_OK);
    EXPECT_EQ(n, 4u);

    EXPECT_EQ(m->Time(c.obj, nullptr), VX_E_BADARG);
    EXPECT_EQ(m->First(nullptr), VX_E_BADARG);
    EXPECT_EQ(m->Find(c.obj, std::numeric_limits<double>::quiet_NaN()), VX_E_BADARG);

    ListenedEnvelope empty;
    Cursor none(empty.env);
    EXPECT_EQ(none.m->First(none.obj), VX_E_NOTFOUND);
    EXPECT_EQ(none.m->Last(none.obj), VX_E_NOTFOUND);
}

TEST_F(KeyAccess, ReadsNameSidesAsIncomingOutgoingOrTheShownValue) {
    EnvKey *key = key_at(e.env, 1);
    UndoSysSuspend();
    EnvKeyBreak(e.env, key, ENV_BREAK_VALUE);
    EnvKeyBreak(e.env, key, ENV_BREAK_SLOPE);
    EnvKeySetTangentValue(e.env, key, 1, 15.0);
    EnvKeySetSlopeValue(e.env, key, 0, 0.5);
    EnvKeySetSlopeValue(e.env, key, 1, -2.0);
    EnvKeySetSlopeType(e.env, key, 1, ENV_SLOPE_LINEAR_OUT);
    EnvKeySetWeightType(e.env, key, 1, 1);
    EnvKeySetWeightValue(e.env, key, 1, 0.25);
    UndoSysResume();
    EnvKeySetActiveValue(e.env, key, 1);

    const auto *m = c.m;
    ASSERT_EQ(m->Find(c.obj, 1.0), VX_OK);
    auto real = [&](unsigned int (*read)(void *, int, double *), int side) {
        double v = 0.0;
        EXPECT_EQ(read(c.obj, side, &v), VX_OK);
        return v;
    };
    auto word = [&](unsigned int (*read)(void *, int, unsigned int *), int side) {
        unsigned int u = 0;
        EXPECT_EQ(read(c.obj, side, &u), VX_OK);
        return u;
    };
    constexpr int in = ENV_KEY_ACCESS_INCOMING;
    constexpr int out = ENV_KEY_ACCESS_OUTGOING;
    EXPECT_EQ(real(m->Value, in), 10.0);
    EXPECT_EQ(real(m->Value, out), 15.0);
    EXPECT_EQ(real(m->Value, ENV_KEY_ACCESS_CURRENT), 15.0) << "the outgoing side is active";
    EXPECT_EQ(real(m->Value, 7), 15.0);
    auto active = [&] {
        int side = -1;
        EXPECT_EQ(m->ActiveSide(c.obj, &side), VX_OK);
        return side;
    };
    EXPECT_EQ(active(), out);
    EnvKeySetActiveValue(e.env, key, 0);
    EXPECT_EQ(real(m->Value, ENV_KEY_ACCESS_CURRENT), 10.0);
    EXPECT_EQ(active(), in);

    EXPECT_EQ(real(m->Slope, in), 0.5);
    EXPECT_EQ(real(m->Slope, out), -2.0);
    EXPECT_EQ(word(m->SlopeType, in), EnvKeyDefaultSlopeType());
    EXPECT_EQ(word(m->SlopeType, out), ENV_SLOPE_LINEAR_OUT);
    EXPECT_EQ(real(m->Weight, in), EnvKeyGetWeightValue(key, 0));
    EXPECT_EQ(real(m->Weight, out), EnvKeyGetWeightValue(key, 1));
    EXPECT_NE(real(m->Weight, in), real(m->Weight, out));
    EXPECT_EQ(word(m->WeightType, in), 0u);
    EXPECT_EQ(word(m->WeightType, out), 1u);
    unsigned int bits = 0;
    EXPECT_EQ(m->Breaks(c.obj, &bits), VX_OK);
    EXPECT_EQ(bits, ENV_BREAK_VALUE | ENV_BREAK_SLOPE);

    // An unbroken key has one side: the outgoing side reads the incoming one.
    ASSERT_EQ(m->Next(c.obj), VX_OK);
    EXPECT_EQ(real(m->Value, out), 20.0);
    EXPECT_EQ(m->Breaks(c.obj, &bits), VX_OK);
    EXPECT_EQ(bits, 0u);
}

TEST_F(KeyAccess, MismatchedTypesAndEditsWithoutACurrentKeyChangeNothing) {
    const std::string before = snapshot(e.env);
    const auto *m = c.m;
    EXPECT_EQ(m->SetPreBehavior(c.obj, ENV_BEHAVIOR_REPEAT), VX_E_REFUSED);
    EXPECT_EQ(m->SetPostBehavior(c.obj, ENV_BEHAVIOR_REPEAT), VX_E_REFUSED);
    EXPECT_EQ(m->ClearKeys(c.obj), VX_E_REFUSED);
    EXPECT_EQ(m->SetValue(c.obj, 0, 1.0), VX_E_NOTFOUND);
    EXPECT_EQ(m->SetTime(c.obj, 9.0), VX_E_NOTFOUND);
    EXPECT_EQ(m->Break(c.obj, ENV_BREAK_SLOPE), VX_E_NOTFOUND);
    EXPECT_EQ(m->DeleteKey(c.obj), VX_E_NOTFOUND);
    int i = 0;
    EXPECT_EQ(m->ValueInt(c.obj, 0, &i), VX_E_TYPEMISMATCH) << "the type is tested first";
    EXPECT_EQ(snapshot(e.env), before);
    EXPECT_EQ(e.notes.count(), 0u);
    EXPECT_EQ(UndoSysUndoCount(), 0u);

    ASSERT_EQ(m->First(c.obj), VX_OK);
    EXPECT_EQ(m->ValueInt(c.obj, 0, &i), VX_E_TYPEMISMATCH);
    EXPECT_EQ(m->SetValueInt(c.obj, 0, 5), VX_E_TYPEMISMATCH);
    EXPECT_EQ(m->AddKeyInt(c.obj, 5.0, 5), VX_E_TYPEMISMATCH);
    EXPECT_EQ(m->Break(c.obj, 0x8), VX_E_BADARG);
    EXPECT_EQ(m->SetTime(c.obj, std::numeric_limits<double>::infinity()), VX_E_BADARG);
    EXPECT_EQ(snapshot(e.env), before);
    EXPECT_EQ(e.notes.count(), 0u);
    EXPECT_EQ(m->SetPreBehavior(c.obj, ENV_BEHAVIOR_REPEAT), VX_OK);
    EXPECT_EQ(EnvPreBehavior(e.env), ENV_BEHAVIOR_REPEAT);
    EXPECT_EQ(m->ClearKeys(c.obj), VX_OK);
    EXPECT_EQ(key_count(e.env), 0);
    EXPECT_FALSE(c.has_key());
    EXPECT_EQ(m->SetPostBehavior(c.obj, ENV_BEHAVIOR_REPEAT), VX_E_REFUSED);

    // An integer envelope takes and gives integers only.
    ListenedEnvelope ie(true);
    fill(ie.env);
    Cursor ic(ie.env);
    double v = 0.0;
    ASSERT_EQ(ic.m->Last(ic.obj), VX_OK);
    EXPECT_EQ(ic.m->Value(ic.obj, 0, &v), VX_E_TYPEMISMATCH);
    EXPECT_EQ(ic.m->SetValue(ic.obj, 0, 5.0), VX_E_TYPEMISMATCH);
    EXPECT_EQ(ic.m->AddKey(ic.obj, 5.0, 5.0), VX_E_TYPEMISMATCH);
    EXPECT_EQ(ic.m->SetValueInt(ic.obj, 0, -4), VX_OK);
    EXPECT_EQ(EnvKeyValueInt(key_at(ie.env, 3)), -4);
    EXPECT_EQ(ic.m->AddKeyInt(ic.obj, 5.0, 7), VX_OK);
    EXPECT_EQ(ic.time(), 5.0) << "the new key is current";
    EXPECT_EQ(ic.m->ValueInt(ic.obj, 0, &i), VX_OK);
    EXPECT_EQ(i, 7);
}

TEST_F(KeyAccess, TheCurrentKeyIsDroppedWhenAnyKeyOfItsEnvelopeIsAboutToBeRemoved) {
    const auto *m = c.m;
    ASSERT_EQ(m->Find(c.obj, 1.0), VX_OK);
    ASSERT_EQ(EnvDelKey(e.env, key_at(e.env, 3)), 1);
    EXPECT_FALSE(c.has_key()) << "another key's removal drops it too";
    UndoSysUndo();
    EXPECT_FALSE(c.has_key()) << "bringing keys back does not restore it";

    // Undoing the cursor's own new key removes that key from under it.
    ASSERT_EQ(m->AddKey(c.obj, 1.5, 15.0), VX_OK);
    EXPECT_EQ(c.time(), 1.5);
    ASSERT_TRUE(UndoSysUndo());
    EXPECT_EQ(key_count(e.env), 4);
    EXPECT_FALSE(c.has_key());
    EXPECT_EQ(m->SetValue(c.obj, 0, 1.0), VX_E_NOTFOUND);

    // Removals from another envelope that shares the port leave the cursor alone.
    Envelope *other = EnvCreate(nullptr);
    EnvSetPort(other, e.port);
    UndoSysSuspend();
    EnvKey *stranger = EnvAddKey(other, 1.0, 1.0);
    ASSERT_EQ(m->Find(c.obj, 2.0), VX_OK);
    EnvDelKey(other, stranger);
    UndoSysResume();
    EXPECT_EQ(c.time(), 2.0);
    EnvDestroyNoUndo(other);

    // Its own move onto another key removes that key, yet the moved key stays current.
    ASSERT_EQ(m->SetTime(c.obj, 1.0), VX_OK);
    EXPECT_EQ(key_times(e.env), (std::vector<double>{0.0, 1.0, 3.0}));
    EXPECT_EQ(c.moved(m->Next(c.obj)), 3.0);
    EXPECT_EQ(m->DeleteKey(c.obj), VX_OK);
    EXPECT_FALSE(c.has_key());
    EXPECT_EQ(key_times(e.env), (std::vector<double>{0.0, 1.0}));
}

TEST_F(KeyAccess, WithoutAPortARemovedKeyIsNoticedAndAPortSetLaterIsHeard) {
    Envelope *env = EnvCreate(nullptr);
    fill(env);
    auto cursor = std::make_unique<Cursor>(env);
    const auto *m = cursor->m;
    UndoSysEnable(0);  // deleted keys are freed at once

    ASSERT_EQ(m->Find(cursor->obj, 1.0), VX_OK);
    EnvDelKey(env, key_at(env, 0));
    EXPECT_EQ(cursor->time(), 1.0) << "unheard: only the key's own removal can be noticed";
    EnvDelKey(env, key_at(env, 0));  // the current key, freed
    EXPECT_FALSE(cursor->has_key());
    EXPECT_EQ(m->Next(cursor->obj), VX_E_NOTFOUND);

    Port *port = PortCreate(nullptr);
    EnvSetPort(env, port);
    ASSERT_EQ(m->First(cursor->obj), VX_OK);
    EXPECT_EQ(PortListenerCount(port), 1u) << "listening from the first call after";
    EnvDelKey(env, key_at(env, 1));
    EXPECT_FALSE(cursor->has_key());

    Port *replacement = PortCreate(nullptr);
    EnvSetPort(env, replacement);
    ASSERT_EQ(m->First(cursor->obj), VX_OK);
    EXPECT_EQ(PortListenerCount(port), 0u);
    EXPECT_EQ(PortListenerCount(replacement), 1u);
    cursor.reset();
    EXPECT_EQ(PortListenerCount(replacement), 0u);

    EnvDestroyNoUndo(env);
    PortDestroy(port);
    PortDestroy(replacement);
}

using Edit = std::function<unsigned int(const Cursor &)>;
struct EditCase {
    const char *name;
    Edit edit;
    bool broken = false;  // whether key 1 is broken first
};

// Every kind of edit, made with the cursor on the key at 1 s.
std::vector<EditCase> edit_cases(const EnvKeyAccessMethods *m) {
    return {
        {"value", [m](const Cursor &k) { return m->SetValue(k.obj, 0, 12.0); }},
        {"outgoing value", [m](const Cursor &k) { return m->SetValue(k.obj, 2, 12.0); }, true},
        {"slope", [m](const Cursor &k) { return m->SetSlope(k.obj, 1, 1.5); }},
        {"slope type", [m](const Cursor &k) { return m->SetSlopeType(k.obj, 1, 4); }},
        {"weight", [m](const Cursor &k) { return m->SetWeight(k.obj, 2, 0.7); }},
        {"weight type", [m](const Cursor &k) { return m->SetWeightType(k.obj, 1, 1); }},
        {"time", [m](const Cursor &k) { return m->SetTime(k.obj, 1.5); }},
        {"time onto a key", [m](const Cursor &k) { return m->SetTime(k.obj, 2.0); }},
        {"break slope", [m](const Cursor &k) { return m->Break(k.obj, ENV_BREAK_SLOPE); }},
        {"break weight", [m](const Cursor &k) { return m->Break(k.obj, ENV_BREAK_WEIGHT); }},
        {"unify", [m](const Cursor &k) { return m->Unify(k.obj, ENV_BREAK_VALUE); }, true},
        {"delete", [m](const Cursor &k) { return m->DeleteKey(k.obj); }},
        {"add", [m](const Cursor &k) { return m->AddKey(k.obj, 4.0, 40.0); }},
        {"pre behaviour", [m](const Cursor &k) { return m->SetPreBehavior(k.obj, 3); }},
        {"post behaviour", [m](const Cursor &k) { return m->SetPostBehavior(k.obj, 4); }},
        {"clear", [m](const Cursor &k) { return m->ClearKeys(k.obj); }},
    };
}

TEST_F(KeyAccess, EachEditIsOneUndoStepThatUndoAndRedoReplay) {
    const auto *m = c.m;
    for (const EditCase &edit : edit_cases(m)) {
        SCOPED_TRACE(edit.name);
        if (edit.broken) {
            UndoSysSuspend();
            EnvKeyBreak(e.env, key_at(e.env, 1), ENV_BREAK_VALUE);
            EnvKeySetTangentValue(e.env, key_at(e.env, 1), 1, 11.0);
            UndoSysResume();
        }
        ASSERT_EQ(m->Find(c.obj, 1.0), VX_OK);
        const std::string before = snapshot(e.env);
        const auto steps = UndoSysUndoCount();
        ASSERT_EQ(edit.edit(c), VX_OK);
        const std::string after = snapshot(e.env);
        EXPECT_NE(after, before);
        EXPECT_EQ(UndoSysUndoCount(), steps + 1);
        ASSERT_TRUE(UndoSysUndo());
        EXPECT_EQ(snapshot(e.env), before);
        ASSERT_TRUE(UndoSysRedo());
        EXPECT_EQ(snapshot(e.env), after);
        ASSERT_TRUE(UndoSysUndo());
        UndoSysClear();
        if (edit.broken) EnvKeyUnifyAll(e.env, key_at(e.env, 1), 0);
        UndoSysClear();
    }
}

// A fresh envelope and a cursor on its key at 1 s, for each failure point.
class CursorEdit : public AtomicityTarget {
  public:
    explicit CursorEdit(Edit edit) : edit_(std::move(edit)) {
        fill(e_.env);
        e_.notes.take();
        c_.m->Find(c_.obj, 1.0);
    }
    std::string snapshot() override { return vx::test::snapshot(e_.env) + cursor_state(); }
    bool edit() override {
        const unsigned int code = edit_(c_);
        if (code != VX_OK) {
            EXPECT_EQ(code, VX_E_NOMEMORY);
        }
        return code == VX_OK;
    }
    std::size_t events() override { return e_.notes.count(); }

  private:
    std::string cursor_state() const {
        return c_.has_key() ? "current " + std::to_string(c_.time()) : "no current key";
    }
    ListenedEnvelope e_;
    Cursor c_{e_.env};
    Edit edit_;
};

TEST_F(KeyAccess, AFailedEditReturnsItsCodeAndLeavesEnvelopeAndCursorAsTheyWere) {
    for (const EditCase &edit : edit_cases(c.m)) {
        if (edit.broken) continue;
        const AtomicityReport report =
            check_atomicity(edit.name, [&edit] { return std::make_unique<CursorEdit>(edit.edit); });
        EXPECT_GT(report.held, 0u) << edit.name;
    }
}

TEST_F(KeyAccess, CreationFailsWithoutLeftoversReleaseDetachesAndByClassNameGivesNoEnvelope) {
    void *obj = &obj;
    EXPECT_EQ(EnvKeyAccessCreate(nullptr, &obj), VX_E_BADARG);
    EXPECT_EQ(obj, nullptr);
    EXPECT_EQ(EnvKeyAccessCreate(e.env, nullptr), VX_E_BADARG);

    const unsigned int listeners = PortListenerCount(e.port);
    const auto live = alloc_counts().live_blocks;
    unsigned int code = VX_E_NOMEMORY;
    for (std::uint64_t n = 1; code == VX_E_NOMEMORY; ++n) {
        obj = &obj;
        {
            FailAllocation fail(n);
            code = EnvKeyAccessCreate(e.env, &obj);
        }
        if (code == VX_E_NOMEMORY) {
            EXPECT_EQ(obj, nullptr);
            EXPECT_EQ(PortListenerCount(e.port), listeners);
            EXPECT_EQ(alloc_counts().live_blocks, live);
        }
    }
    // Only the last reference's release detaches from the port.
    ASSERT_EQ(code, VX_OK);
    EXPECT_EQ(PortListenerCount(e.port), listeners + 1);
    XObjectAddRef(obj);
    XObjectRelease(obj);
    EXPECT_EQ(PortListenerCount(e.port), listeners + 1);
    XObjectRelease(obj);
    EXPECT_EQ(PortListenerCount(e.port), listeners);
    EXPECT_EQ(alloc_counts().live_blocks, live);
    EnvDelKey(e.env, key_at(e.env, 0));  // a removal note reaches no freed listener
    EXPECT_EQ(e.notes.codes(), (std::vector<std::uint32_t>{ENV_NOTE_REMOVE, ENV_NOTE_ENVELOPE}));

    // Made by class name (registered by the fixture's cursor), it has no envelope.
    ASSERT_EQ(XObjectAllocate(ENV_KEY_ACCESS_CLASS, &obj), VX_OK);
    void *table = nullptr;
    ASSERT_EQ(XObjectQueryInterface(obj, "{d1d0261f-22cf-4e5d-822e-76b5dec98ae4}", &table), VX_OK);
    const auto *m = static_cast<const EnvKeyAccessMethods *>(table);
    EXPECT_EQ(m->First(obj), VX_E_NOTFOUND);
    EXPECT_EQ(m->AddKey(obj, 0.0, 1.0), VX_E_NOTFOUND);
    EXPECT_EQ(m->SetPreBehavior(obj, 2), VX_E_REFUSED);
    EXPECT_EQ(m->object.Release(obj), 1u);
    EXPECT_EQ(XObjectRelease(obj), 0u);
}

}  // namespace
}  // namespace vx::test
