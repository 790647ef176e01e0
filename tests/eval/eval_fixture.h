// Shared set-up for the evaluation tests: a started scene module with the built-in modifiers, a
// scene, a "probe" item type with float, integer and matrix channels, and modifiers that tests
// configure with plain rules.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include <vexor/action.h>
#include <vexor/cinema.h>
#include <vexor/env.h>
#include <vexor/eval.h>
#include <vexor/host.h>
#include <vexor/package.h>
#include <vexor/scene.h>
#include <vexor/sys/component.h>
#include <vexor/sys/modifier.h>

#include "eval/eval_data.h"
#include "eval/modifier_builtin.h"
#include "scene/scene.h"

#include "support/log_lines.h"

namespace vx::test {

// Channels of a probe item.
enum ProbeChannel : unsigned { kA = 0, kB = 1, kC = 2, kCount = 3, kMatrix = 4 };

// A modifier made by a test. For every item of `type`, each rule makes one node that reads the
// named channels of the item (and the time when `time` is set) and writes `output`.
struct Rule {
    std::vector<std::string> inputs;
    std::string output;
    std::function<double(const std::vector<double> &, double time)> fn;
    bool time = false;
    bool refuse = false;  // the factory fails to make the node
    bool matrix = false;  // the output is a matrix: a translation by fn's result along x, or
                          // nothing written when the result is NaN
};

struct TestModifier {
    std::string type = "probe";
    std::vector<Rule> rules;
    std::atomic<int> runs{0};  // node evaluations, on any thread
};

// Test modifiers as component objects: a factory per modifier, a node per (item, rule).
namespace mods {

struct FactoryObject {
    TestModifier *mod;
};
struct NodeObject {
    TestModifier *mod;
    CineItem *item;
    unsigned rule;
};

inline void enumerate(void *obj, Cinema *scene, CineModVisitFunc visit, void *data) {
    TestModifier &mod = *static_cast<FactoryObject *>(obj)->mod;
    const std::uint32_t type = CineLookupType(mod.type.c_str());
    for (unsigned i = 0; i < CinemaItemCount(scene); ++i) {
        CineItem *item = CinemaItemByIndex(scene, i);
        if (!CineItemTestType(item, type)) continue;
        for (unsigned r = 0; r < mod.rules.size(); ++r) visit(data, item, r);
    }
}

inline unsigned link(void *obj, CineModLinks *links) {
    auto &node = *static_cast<NodeObject *>(obj);
    const Rule &rule = node.mod->rules[node.rule];
    for (const std::string &name : rule.inputs)
        CineModAddInput(links, node.item, unsigned(CineItemLookupChannel(node.item, name.c_str())));
    if (rule.time) CineModAddTimeInput(links);
    CineModAddOutput(links, node.item,
                     unsigned(CineItemLookupChannel(node.item, rule.output.c_str())));
    return VX_OK;
}

inline unsigned evaluate(void *obj, CineModEval *eval) {
    auto &node = *static_cast<NodeObject *>(obj);
    const Rule &rule = node.mod->rules[node.rule];
    ++node.mod->runs;
    std::vector<double> in;
    for (unsigned i = 0; i < rule.inputs.size(); ++i) in.push_back(CineModInput(eval, i));
    const double result = rule.fn(in, CineModTime(eval));
    if (rule.matrix) {
        if (std::isnan(result)) return VX_OK;  // the node leaves the matrix as it came
        double m[16] = {1, 0, 0, result, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
        CineModSetOutputMatrix(eval, 0, m);
    } else {
        CineModSetOutput(eval, 0, result);
    }
    return VX_OK;
}

inline const CineModNodeMethods kNode = {XOBJECT_METHODS_INIT, link, evaluate};

inline unsigned create(void *obj, CineItem *item, unsigned index, void **out) {
    TestModifier *mod = static_cast<FactoryObject *>(obj)->mod;
    if (mod->rules[index].refuse) return VX_E_FAILED;
    unsigned code = XObjectAllocate("test.modNode", out);
    if (code != VX_OK) return code;
    *static_cast<NodeObject *>(*out) = NodeObject{mod, item, index};
    return VX_OK;
}

inline const CineModFactoryMethods kFactory = {
    XOBJECT_METHODS_INIT, [](void *, Cinema *) { return 1; }, enumerate, create};

inline void *make_factory(void *data) {
    void *obj = nullptr;
    if (XObjectAllocate("test.modFactory", &obj) != VX_OK) return nullptr;
    static_cast<FactoryObject *>(obj)->mod = static_cast<TestModifier *>(data);
    return obj;
}

}  // namespace mods

class EvalTest : public ::testing::Test {
  protected:
    void SetUp() override {
        CinemaStartup();
        eval::register_builtin_modifiers();
        XObjectDefineClass("test.modFactory", sizeof(mods::FactoryObject), nullptr);
        XObjectAddInterface("test.modFactory", CINE_MOD_FACTORY_GUID, &mods::kFactory);
        XObjectDefineClass("test.modNode", sizeof(mods::NodeObject), nullptr);
        XObjectAddInterface("test.modNode", CINE_MOD_NODE_GUID, &mods::kNode);

        const char *const none = nullptr;
        CinePackageDefine("probe");
        CinePackageAddChannel("probe", CINE_CH_NAME, "a", VX_STORE_FLOAT, none, CINE_CH_DEFAULT,
                              1.0, CINE_CH_NAME, "b", VX_STORE_FLOAT, none, CINE_CH_DEFAULT, 2.0,
                              CINE_CH_NAME, "c", VX_STORE_FLOAT, none, CINE_CH_NAME, "count",
                              VX_STORE_INT, none, CINE_CH_DEFAULT_INT, 7, CINE_CH_NAME, "m",
                              VX_STORE_MATRIX, none, CINE_CH_NAME, none);
        probe_type = CineDefineType(0, 0, "probe");
        ASSERT_NE(probe_type, CINE_TYPE_NONE);
        scene = CinemaCreate(0);
        ASSERT_NE(scene, nullptr);
        capture_log(lines);
    }
    void TearDown() override {
        release_log();
        // The scene's evaluation data, its evaluators with it, goes first when a scene is
        // destroyed; tests leave their evaluators to it. Calling it here as well is harmless.
        eval::destroy_eval_data(*scene);
        CinemaDestroy(scene);
        CinemaShutdown();
    }

    CineItem *probe() {
        CineItem *item = CineItemCreate(scene, probe_type);
        EXPECT_NE(item, nullptr);
        return item;
    }
    CineAction *action(unsigned kind) { return CineActionGetDefault(scene, kind); }
    // A new evaluator at the default action of that kind and the time, not yet evaluated.
    CineEval *evaluator(unsigned kind, double time = 0.0) {
        CineEval *ev = CineEvalCreate(scene);
        CineEvalSetAction(ev, action(kind));
        CineEvalSetTime(ev, time);
        return ev;
    }
    // An envelope through (0, v0) and (1, v1), linear, held by the action for the channel.
    Envelope *animate(CineAction *act, CineItem *item, unsigned channel, double v0, double v1) {
        Envelope *env = EnvCreate(nullptr);
        EnvSetInterpolationDirect(env, 1);  // linear
        EnvAddKey(env, 0.0, v0);
        EnvAddKey(env, 1.0, v1);
        EXPECT_EQ(CineActionSetEnvelope(act, item, channel, env), 1);
        return env;
    }
    // Registers a test modifier under a name, with a type list.
    void add_modifier(const char *name, TestModifier &mod, const char *types = "probe") {
        HostServer *server = HostAddBuiltIn(CINE_MODIFIER_CLASS, name, mods::make_factory, &mod);
        ASSERT_NE(server, nullptr);
        ServerAddTag(server, "modifier.typeList", types);
    }
    // The log lines that contain the text.
    std::vector<std::string> lines_with(const std::string &text) const {
        std::vector<std::string> out;
        for (const std::string &line : lines) {
            if (line.find(text) != std::string::npos) out.push_back(line);
        }
        return out;
    }

    Cinema *scene = nullptr;
    std::uint32_t probe_type = 0;
    std::vector<std::string> lines;
};

}  // namespace vx::test
