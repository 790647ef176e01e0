// Render jobs driven through a host's job table written here, frame buffers, render buffers and
// the output file names.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <vexor/action.h>
#include <vexor/cinema.h>
#include <vexor/frame_buffer.h>
#include <vexor/host.h>
#include <vexor/package.h>
#include <vexor/render_job.h>
#include <vexor/scene.h>
#include <vexor/undo.h>
#include <vexor/value.h>

#include "support/in_order.h"

namespace {

using vx::test::in_order;
using vx::test::Ints;

// ---- The host ----

struct Host {
    unsigned status = RENDER_JOB_RENDERING;  // what the status slot answers
    unsigned starts = 0, aborts = 0, cleanups = 0;
    void *cleaned = nullptr;  // the job the last clean-up was given
    std::vector<unsigned> events;
};
Host host;

const RenderJobFuncs kFuncs = {
    [](void *) { return ++host.starts, 0x42u; },
    [](void *) { return ++host.aborts, 0x43u; },
    [](void *job) { return job; },
    [](void *) { return host.status; },
    [](void *) { return 1; },
    nullptr,
    [](void *, unsigned index) { return index == 0 ? "beauty" : "depth"; },
    [](void *, unsigned index) { return static_cast<int>(index) + 10; },
    [](void *) { return 2u; },
    [](void *job) { ++host.cleanups, host.cleaned = job; },
};

const RenderJobMethods kJobMethods = {XOBJECT_METHODS_INIT};

void *make_object(const char *cls) {
    void *object = nullptr;
    EXPECT_EQ(XObjectAllocate(cls, &object), VX_OK);
    return object;
}

unsigned refs(void *object) {
    XObjectAddRef(object);
    return XObjectRelease(object);
}

class RenderJobs : public ::testing::Test {
  protected:
    void SetUp() override {
        host = Host{};
        ASSERT_EQ(RenderJobStartup(), 1);
        RenderJobSetFuncs(&kFuncs);
        XObjectDefineClass("test.renderJob", 0, nullptr);
        XObjectAddInterface("test.renderJob", RENDER_JOB_GUID, &kJobMethods);
        XObjectDefineClass("test.notAJob", 0, nullptr);
        job = make_object("test.renderJob");
        other = make_object("test.renderJob");
        attachment = PortAttach(
            RenderJobPort(),
            [](void *, void *, uint32_t code, void *) { host.events.push_back(code); }, nullptr,
            nullptr);
    }
    void TearDown() override {
        PortDetach(RenderJobPort(), attachment);
        RenderJobShutdown();
        XObjectRelease(job);
        XObjectRelease(other);
    }
    void *job = nullptr;
    void *other = nullptr;
    uint64_t attachment = 0;
};

// ---- The state machine, step by step ----

TEST_F(RenderJobs, EveryStatusWordThroughALifecycle) {
    struct Step {
        const char *what;
        unsigned host_status;
        unsigned (*call)(void *job, void *other);
        unsigned want;
    };
    const Step steps[] = {
        {"status, no job", RENDER_JOB_RENDERING, [](void *, void *) { return RSrvJobStatus(); },
         RENDER_JOB_NO_JOB},
        {"start, no job", 0, [](void *, void *) { return RSrvJobStart(); }, RENDER_JOB_NO_JOB},
        {"abort, no job", 0, [](void *, void *) { return RSrvJobAbort(); }, RENDER_JOB_NO_JOB},
        {"not a job", 0,
         [](void *, void *) {
             void *stranger = make_object("test.notAJob");
             const unsigned rc = RSrvJobSetCurrent(stranger);
             XObjectRelease(stranger);
             return rc;
         },
         RENDER_JOB_NOT_A_JOB},
        {"set current", RENDER_JOB_RENDERING, [](void *j, void *) { return RSrvJobSetCurrent(j); },
         0},
        {"pending whatever the host says", RENDER_JOB_RENDERING,
         [](void *, void *) { return RSrvJobStatus(); }, RENDER_JOB_PENDING},
        {"another job while pending", RENDER_JOB_RENDERING,
         [](void *, void *o) { return RSrvJobSetCurrent(o); }, 0},
        {"start: the host's answer", RENDER_JOB_RENDERING,
         [](void *, void *) { return RSrvJobStart(); }, 0x42},
        {"rendering", RENDER_JOB_RENDERING, [](void *, void *) { return RSrvJobStatus(); },
         RENDER_JOB_RENDERING},
        {"abort: the host's answer", RENDER_JOB_RENDERING,
         [](void *, void *) { return RSrvJobAbort(); }, 0x43},
        {"no other job while rendering", RENDER_JOB_RENDERING,
         [](void *j, void *) { return RSrvJobSetCurrent(j); }, RENDER_JOB_BUSY},
        {"nor none", RENDER_JOB_RENDERING,
         [](void *, void *) { return RSrvJobSetCurrent(nullptr); }, RENDER_JOB_BUSY},
        {"clean-up while rendering does nothing", RENDER_JOB_RENDERING,
         [](void *, void *) { return RSrvJobCleanup(); }, RENDER_JOB_RENDERING},
        {"done: the host's status", 0x6400003, [](void *, void *) { return RSrvJobStatus(); },
         0x6400003},
        {"clean-up after rendering", 0x6400003, [](void *, void *) { return RSrvJobCleanup(); }, 0},
        {"no job after clean-up", RENDER_JOB_RENDERING,
         [](void *, void *) { return RSrvJobStatus(); }, RENDER_JOB_NO_JOB},
    };
    for (const Step &step : steps) {
        host.status = step.host_status;
        EXPECT_EQ(step.call(job, other), step.want) << step.what;
    }
    EXPECT_EQ(host.starts, 1u);
    EXPECT_EQ(host.cleanups, 1u);
    EXPECT_EQ(host.cleaned, other);  // the job that was current, still alive during the call
    EXPECT_EQ(RSrvJobCurrent(), nullptr);
    EXPECT_EQ(refs(job), 1u);  // every reference the module took is given back
    EXPECT_EQ(refs(other), 1u);
    const std::vector<unsigned> events = {RENDER_JOB_EVENT_CURRENT, RENDER_JOB_EVENT_CURRENT,
                                          RENDER_JOB_EVENT_STARTED, RENDER_JOB_EVENT_CLEANUP};
    EXPECT_EQ(host.events, events);
}

TEST_F(RenderJobs, OutputsAreNamedOnlyWhileRendering) {
    const auto outputs = [] {
        return std::to_string(RSrvJobRenderOutputCount()) + " " +
               (RSrvJobRenderOutputName(1) != nullptr ? RSrvJobRenderOutputName(1) : "-") + " " +
               std::to_string(RSrvJobRenderOutputType(1));
    };
    EXPECT_EQ(outputs(), "0 - -1");  // no job
    ASSERT_EQ(RSrvJobSetCurrent(job), 0u);
    EXPECT_EQ(outputs(), "0 - -1");  // pending, though the host says it renders
    EXPECT_EQ(RSrvJobStats(), job);
    EXPECT_EQ(RSrvJobIsSlave(), 1);
    RSrvJobStart();
    EXPECT_EQ(outputs(), "2 depth 11");
    host.status = 0;
    EXPECT_EQ(outputs(), "0 - -1");  // started, but no longer rendering
}

TEST_F(RenderJobs, DroppingJobsAndCleaningUp) {
    ASSERT_EQ(RSrvJobSetCurrent(job), 0u);
    EXPECT_EQ(refs(job), 2u);
    void *current = RSrvJobCurrent();
    EXPECT_EQ(current, job);
    XObjectRelease(current);
    // Not rendering, a job is dropped; without a job the host still cleans up.
    EXPECT_EQ(in_order({RSrvJobSetCurrent(nullptr), refs(job), RSrvJobStatus(), RSrvJobCleanup()}),
              (Ints{0, 1, RENDER_JOB_NO_JOB, 0}));
    EXPECT_EQ(host.cleaned, nullptr);
    // A job left current at the last stop is released, without the host's clean-up.
    ASSERT_EQ(RSrvJobSetCurrent(job), 0u);
    RSrvJobStart();
    ASSERT_EQ(RenderJobStartup(), 1);
    RenderJobShutdown();
    EXPECT_EQ(refs(job), 2u);  // not the last stop
    RenderJobShutdown();
    // Stopped, jobs are refused; started again, the table went with the stop.
    EXPECT_EQ(in_order({refs(job), host.cleanups, RSrvJobSetCurrent(job), RenderJobStartup(),
                        RSrvJobStatus(), RSrvJobSetCurrent(job), RSrvJobStart()}),
              (Ints{1, 1, VX_E_REFUSED, 1, RENDER_JOB_NO_JOB, 0, VX_E_NOTFOUND}));
    RenderJobSetFuncs(&kFuncs);
}

TEST_F(RenderJobs, TheServiceObjectAndTheInterfaceNames) {
    void *service = nullptr;
    ASSERT_EQ(ServerAllocate(HostLookupServer("renderservice", "renderservice"), &service), VX_OK);
    void *table = nullptr;
    ASSERT_EQ(XObjectQueryInterface(service, "renderservice", &table), VX_OK);
    const auto *methods = static_cast<const RenderServiceMethods *>(table);
    EXPECT_EQ(methods->SetCurrent(service, job), 0u);
    EXPECT_EQ(methods->Status(service), RENDER_JOB_PENDING);
    methods->object.Release(service);
    XObjectRelease(service);
    EXPECT_EQ(XObjectQueryInterface(job, "renderjob", &table), VX_OK);  // the alias
    XObjectRelease(job);
    EXPECT_EQ(XObjectQueryInterface(job, "renderstats", &table), VX_E_NOTFOUND);
}

// ---- Frame buffers ----

TEST_F(RenderJobs, FrameBuffersKeepSettingsRowsAndIdents) {
    void *fb = nullptr;
    ASSERT_EQ(XFrameBufferCreate(&fb), VX_OK);
    EXPECT_EQ(XFrameBufferRenderSettings(fb), nullptr);
    EXPECT_EQ(XFrameBufferLine(fb, 0), nullptr);  // no render
    const XFrameBufferState early = {0, 0.0, 0, nullptr};
    EXPECT_EQ(XFrameBufferRenderEnd(fb, &early), VX_E_REFUSED);
    const XFrameBufferSettings bad[] = {{0, 4, 0, 0, 0}, {4, 70000, 0, 0, 0}, {4, 4, 5000, 0, 0}};
    for (const XFrameBufferSettings &s : bad)
        EXPECT_EQ(XFrameBufferRenderBegin(fb, &s), VX_E_BADARG);
    EXPECT_EQ(XFrameBufferRenderBegin(job, &bad[0]), VX_E_BADARG);  // not a frame buffer

    const XFrameBufferSettings settings = {8, 4, 2, 12, 0.5};
    ASSERT_EQ(XFrameBufferRenderBegin(fb, &settings), VX_OK);
    EXPECT_EQ(XFrameBufferRenderBegin(fb, &settings), VX_E_REFUSED);
    EXPECT_EQ(XFrameBufferIsRendering(fb), 1);
    EXPECT_EQ(XFrameBufferRenderSettings(fb)->frame, 12);
    float *line = XFrameBufferLine(fb, 3);
    ASSERT_NE(line, nullptr);
    EXPECT_EQ(line[8 * 4 - 1], 0.0f);
    line[0] = 1.0f;
    EXPECT_EQ(XFrameBufferLine(fb, 3), line);  // made once
    EXPECT_NE(XFrameBufferOutputLine(fb, 1, 3), line);
    EXPECT_EQ(XFrameBufferOutputLine(fb, 2, 0), nullptr);
    EXPECT_EQ(XFrameBufferLine(fb, 4), nullptr);

    const std::string long_ident(300, 'x');
    const char *idents[] = {"beauty#1", nullptr, long_ident.c_str()};
    const XFrameBufferState state = {0x6400003, 1.5, 3, idents};
    ASSERT_EQ(XFrameBufferRenderEnd(fb, &state), VX_OK);
    EXPECT_EQ(XFrameBufferIsRendering(fb), 0);
    EXPECT_EQ(XFrameBufferLine(fb, 3), nullptr);  // the rows went with the end
    EXPECT_STREQ(XFrameBufferOutputIdent(fb, 0), "beauty#1");
    EXPECT_STREQ(XFrameBufferOutputIdent(fb, 1), "");
    EXPECT_EQ(std::strlen(XFrameBufferOutputIdent(fb, 2)), size_t{XFRAMEBUFFER_IDENT_MAX});
    EXPECT_EQ(XFrameBufferOutputIdent(fb, 3), nullptr);
    EXPECT_EQ(XFrameBufferRenderState(fb)->status, 0x6400003u);
    XObjectRelease(fb);

    ASSERT_EQ(ServerAllocate(HostLookupServer("frameBuffer", "frameBuffer"), &fb), VX_OK);
    EXPECT_STREQ(XObjectClassName(fb), "frameBuffer");
    XObjectRelease(fb);
}

TEST_F(RenderJobs, RenderBuffersAreServersOfTheirDefinitions) {
    EXPECT_EQ(FloatBufferDefine("", 1, 0), VX_E_BADARG);
    EXPECT_EQ(FloatBufferDefine("motion", 5, 0), VX_E_BADARG);
    ASSERT_EQ(FloatBufferDefine("motion", 2, 7), VX_OK);
    ASSERT_EQ(FloatBufferDefine("depth", 1, 0), VX_OK);
    ASSERT_EQ(FloatBufferDefine("motion", 3, 8), VX_OK);  // defined again: replaced
    const RenderBufferDef *motion = FloatBufferLookup("motion");
    ASSERT_NE(motion, nullptr);
    EXPECT_STREQ(motion->name, "motion");
    EXPECT_EQ(motion->components, 3u);
    EXPECT_EQ(motion->flags, 8u);
    EXPECT_EQ(HostServerCount("renderBuffer"), 2u);
    EXPECT_EQ(FloatBufferLookup("speed"), nullptr);
    RenderJobShutdown();
    EXPECT_EQ(FloatBufferDefine("depth", 1, 0), VX_E_REFUSED);
    ASSERT_EQ(RenderJobStartup(), 1);
    EXPECT_EQ(FloatBufferLookup("depth"), nullptr);  // the stop forgot them
    EXPECT_EQ(HostServerCount("renderBuffer"), 0u);
}

// ---- Output file names ----

TEST(RenderOutputNames, PatternsExpandWithEmptyBracketedPartsDropped) {
    struct Case {
        const char *pattern;
        RenderOutputNameFields fields;
        const char *want;
    };
    const Case cases[] = {
        {RENDER_OUTPUT_PATTERN_DEFAULT, {"beauty", nullptr, 1, 12}, "beautyL0012"},
        {RENDER_OUTPUT_PATTERN_DEFAULT, {"", "", 0, 7}, "0007"},
        {nullptr, {"p", "o", 2, 123456}, "poR123456"},
        {"[<pass>_][<output>_][<LR>_]<FFF>", {"key", "diffuse", 0, -4}, "key_diffuse_-004"},
        {"shot[_<pass>-<output>]_<F>", {"key", "", 0, 0}, "shot_0"},
        {"[v2_<pass>]<unknown>[a[<LR>]]", {"x", nullptr, 1, 0}, "v2_x<unknown>[aL]"},
        {"]<FFFF[<pass>", {"x", nullptr, 0, 3}, "]<FFFF[x"},
        {"<FF>", {nullptr, nullptr, 0, -2147483647 - 1}, "-2147483648"},
    };
    for (const Case &c : cases) {
        char name[64];
        EXPECT_EQ(RenderExpandOutputPattern(c.pattern, &c.fields, name, sizeof name),
                  std::strlen(c.want));
        EXPECT_STREQ(name, c.want) << (c.pattern != nullptr ? c.pattern : "(default)");
    }
    // Cut to fit, as snprintf does.
    char small[5];
    EXPECT_EQ(RenderExpandOutputPattern(nullptr, &cases[0].fields, small, sizeof small), 11u);
    EXPECT_STREQ(small, "beau");
    EXPECT_EQ(RenderExpandOutputPattern(nullptr, &cases[0].fields, nullptr, 0), 11u);
}

TEST(RenderOutputNames, TheItemsPatternOrTheDefault) {
    UndoSysStartup();
    CinemaStartup();
    CinePackageDefine("test.render");
    const char *const none = nullptr;
    ASSERT_EQ(CinePackageAddChannel("test.render", CINE_CH_NAME, RENDER_OUTPUT_PATTERN_CHANNEL,
                                    VX_STORE_TEXT, none, CINE_CH_NAME, none),
              1);
    const uint32_t type = CineDefineType(0, 0, "test.render");
    Cinema *scene = CinemaCreate(0);
    CineItem *item = CineItemCreate(scene, type);
    CineAction *edit = CineActionGetDefault(scene, CINE_ACTION_EDIT);
    const unsigned channel = static_cast<unsigned>(CineItemLookupChannel(item, "outPat"));

    EXPECT_STREQ(RenderGetOutputPattern(nullptr, edit), RENDER_OUTPUT_PATTERN_DEFAULT);
    EXPECT_STREQ(RenderGetOutputPattern(item, edit), RENDER_OUTPUT_PATTERN_DEFAULT);  // unset
    ASSERT_EQ(CineActionSetConstantText(edit, item, channel, ""), 1);
    EXPECT_STREQ(RenderGetOutputPattern(item, edit), RENDER_OUTPUT_PATTERN_DEFAULT);  // empty
    ASSERT_EQ(CineActionSetConstantText(edit, item, channel, "[<pass>_]<FFFF>"), 1);
    EXPECT_STREQ(RenderGetOutputPattern(item, edit), "[<pass>_]<FFFF>");
    EXPECT_STREQ(RenderGetOutputPattern(item, nullptr), RENDER_OUTPUT_PATTERN_DEFAULT);

    CinemaDestroy(scene);
    CinemaShutdown();
    UndoSysShutdown();
}

}  // namespace
