#include "eval_fixture.h"

#include <cmath>

#include <vexor/log.h>
#include <vexor/package.h>
#include <vexor/sys/component.h>
#include <vexor/sys/modifier.h>

#include "eval/eval_data.h"
#include "eval/modifier_builtin.h"
#include "scene/scene.h"

namespace vx::test {
namespace {

struct FactoryObject {
    TestModifier *mod;
};
struct NodeObject {
    TestModifier *mod;
    CineItem *item;
    unsigned rule;
};

void enumerate(void *obj, Cinema *scene, CineModVisitFunc visit, void *data) {
    TestModifier &mod = *static_cast<FactoryObject *>(obj)->mod;
    const std::uint32_t type = CineLookupType(mod.type.c_str());
    for (unsigned i = 0; i < CinemaItemCount(scene); ++i) {
        CineItem *item = CinemaItemByIndex(scene, i);
        if (!CineItemTestType(item, type)) continue;
        for (unsigned r = 0; r < mod.rules.size(); ++r) visit(data, item, r);
    }
}

unsigned link(void *obj, CineModLinks *links) {
    auto &node = *static_cast<NodeObject *>(obj);
    const Rule &rule = node.mod->rules[node.rule];
    for (const std::string &name : rule.inputs)
        CineModAddInput(links, node.item, unsigned(CineItemLookupChannel(node.item, name.c_str())));
    if (rule.time) CineModAddTimeInput(links);
    CineModAddOutput(links, node.item,
                     unsigned(CineItemLookupChannel(node.item, rule.output.c_str())));
    return VX_OK;
}

unsigned evaluate(void *obj, CineModEval *eval) {
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

const CineModNodeMethods kNode = {XOBJECT_METHODS_INIT, link, evaluate};

unsigned create(void *obj, CineItem *item, unsigned index, void **out) {
    TestModifier *mod = static_cast<FactoryObject *>(obj)->mod;
    if (mod->rules[index].refuse) return VX_E_FAILED;
    unsigned code = XObjectAllocate("test.modNode", out);
    if (code != VX_OK) return code;
    *static_cast<NodeObject *>(*out) = NodeObject{mod, item, index};
    return VX_OK;
}

const CineModFactoryMethods kFactory = {XOBJECT_METHODS_INIT, [](void *, Cinema *) { return 1; },
                                        enumerate, create};

void *make_factory(void *data) {
    void *obj = nullptr;
    if (XObjectAllocate("test.modFactory", &obj) != VX_OK) return nullptr;
    static_cast<FactoryObject *>(obj)->mod = static_cast<TestModifier *>(data);
    return obj;
}

}  // namespace

void EvalTest::SetUp() {
    CinemaStartup();
    eval::register_builtin_modifiers();
    XObjectDefineClass("test.modFactory", sizeof(FactoryObject), nullptr);
    XObjectAddInterface("test.modFactory", CINE_MOD_FACTORY_GUID, &kFactory);
    XObjectDefineClass("test.modNode", sizeof(NodeObject), nullptr);
    XObjectAddInterface("test.modNode", CINE_MOD_NODE_GUID, &kNode);

    const char *const none = nullptr;
    CinePackageDefine("probe");
    CinePackageAddChannel("probe", CINE_CH_NAME, "a", VX_STORE_FLOAT, none, CINE_CH_DEFAULT, 1.0,
                          CINE_CH_NAME, "b", VX_STORE_FLOAT, none, CINE_CH_DEFAULT, 2.0,
                          CINE_CH_NAME, "c", VX_STORE_FLOAT, none, CINE_CH_NAME, "count",
                          VX_STORE_INT, none, CINE_CH_DEFAULT_INT, 7, CINE_CH_NAME, "m",
                          VX_STORE_MATRIX, none, CINE_CH_NAME, none);
    probe_type = CineDefineType(0, 0, "probe");
    ASSERT_NE(probe_type, CINE_TYPE_NONE);
    scene = CinemaCreate(0);
    ASSERT_NE(scene, nullptr);
    capture_log(lines);
}

void EvalTest::TearDown() {
    release_log();
    // The scene's evaluation data, its evaluators with it, goes first when a scene is destroyed;
    // tests leave their evaluators to it. Calling it here as well is harmless.
    eval::destroy_eval_data(*scene);
    CinemaDestroy(scene);
    CinemaShutdown();
}

CineItem *EvalTest::probe() {
    CineItem *item = CineItemCreate(scene, probe_type);
    EXPECT_NE(item, nullptr);
    return item;
}

CineEval *EvalTest::evaluator(unsigned kind, double time) {
    CineEval *ev = CineEvalCreate(scene);
    CineEvalSetAction(ev, action(kind));
    CineEvalSetTime(ev, time);
    return ev;
}

Envelope *EvalTest::animate(CineAction *act, CineItem *item, unsigned channel, double v0,
                            double v1) {
    Envelope *env = EnvCreate(nullptr);
    EnvSetInterpolationDirect(env, 1);  // linear
    EnvAddKey(env, 0.0, v0);
    EnvAddKey(env, 1.0, v1);
    EXPECT_EQ(CineActionSetEnvelope(act, item, channel, env), 1);
    return env;
}

void EvalTest::add_modifier(const char *name, TestModifier &mod, const char *types) {
    HostServer *server = HostAddBuiltIn(CINE_MODIFIER_CLASS, name, make_factory, &mod);
    ASSERT_NE(server, nullptr);
    ServerAddTag(server, "modifier.typeList", types);
}

std::vector<std::string> EvalTest::lines_with(const std::string &text) const {
    std::vector<std::string> out;
    for (const std::string &line : lines) {
        if (line.find(text) != std::string::npos) out.push_back(line);
    }
    return out;
}

}  // namespace vx::test
