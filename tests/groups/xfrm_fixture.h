// Shared set-up for the transform tests: a started scene module with undo, a scene, captured
// log lines, and helpers that make placed items and read their chains.
#pragma once

#include <gtest/gtest.h>

#include <vexor/action.h>
#include <vexor/cinema.h>
#include <vexor/env.h>
#include <vexor/eval.h>
#include <vexor/log.h>
#include <vexor/matrix4.h>
#include <vexor/scene.h>
#include <vexor/undo.h>
#include <vexor/xfrm.h>

#include <array>
#include <string>
#include <vector>

namespace vx::test {

using Mat = std::array<double, 16>;

class XfrmTest : public ::testing::Test {
  protected:
    void SetUp() override {
        UndoSysStartup();
        UndoSysClear();
        CinemaStartup();
        VxLogSetSink(
            [](void *client, int, const char *, const char *text) {
                static_cast<std::vector<std::string> *>(client)->push_back(text);
            },
            &lines);
        scene = CinemaCreate(0);
        ASSERT_NE(scene, nullptr);
        UndoSysClear();
    }
    void TearDown() override {
        VxLogSetSink(nullptr, nullptr);
        UndoSysClear();
        CinemaDestroy(scene);
        CinemaShutdown();
        UndoSysShutdown();
    }

    CineItem *locator(const char *name = nullptr) {
        CineItem *item = CineItemCreate(scene, XFRM_TYPE_LOCATOR);
        if (name != nullptr) CineItemSetName(item, name);
        return item;
    }
    std::vector<CineItem *> chain(CineItem *item) {
        std::vector<CineItem *> out(XfrmGetTransformArray(item, nullptr, 0));
        XfrmGetTransformArray(item, out.data(), static_cast<unsigned>(out.size()));
        return out;
    }
    // The standard kind names of the chain ("-" for other members).
    std::string kinds(CineItem *item) {
        std::string out;
        for (CineItem *member : chain(item)) {
            const char *tag = CineItemGetTag(member, XFRM_STD_TAG);
            out += std::string(out.empty() ? "" : " ") + (tag != nullptr ? tag : "-");
        }
        return out;
    }
    bool logged(const std::string &text) const {
        for (const std::string &line : lines) {
            if (line.find(text) != std::string::npos) return true;
        }
        return false;
    }
    CineAction *setup() { return CineActionGetDefault(scene, 0); }
    void set(CineItem *item, unsigned channel, double value) {
        ASSERT_EQ(CineActionSetConstant(setup(), item, channel, value), 1);
    }
    void set3(CineItem *item, std::array<double, 3> v) {
        for (unsigned i = 0; i < 3; ++i) set(item, 2 + i, v[i]);
    }

    Cinema *scene = nullptr;
    std::vector<std::string> lines;
};

inline void expect_near(const Mat &a, const Mat &b, double tolerance = 1e-9) {
    for (std::size_t i = 0; i < 16; ++i) EXPECT_NEAR(a[i], b[i], tolerance) << "element " << i;
}

}  // namespace vx::test
