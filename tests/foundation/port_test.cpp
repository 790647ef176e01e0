// Ports where they can go wrong: the list changing under a delivery (detach of the running
// listener and of others, attach, destroy), nested notification, failing listeners, global
// ports shared by name and by threads, and running out of memory.
#include "foundation/foundation_fixture.h"

#include <vexor/port.h>

#include "foundation/log.h"
#include "foundation/port.h"

// Calls are qualified: the C functions of the same names are found too, through Port.
namespace vx {
namespace {

using test::live_blocks;

using Trace = std::vector<std::string>;
Trace trace;  // every call as "<probe>:<code>"

// Empties the trace and gives back its memory, so that leak checks see only the ports.
void reset_trace() {
    trace.clear();
    trace.shrink_to_fit();
}

struct Probe {
    explicit Probe(std::string probe_name) : name(std::move(probe_name)) {}
    std::string name;
    PortAttachment id = 0;
    std::function<void(std::uint32_t)> on_event;  // what the probe does when it hears
};

void probe_listener(void *client, void *, std::uint32_t code, void *) {
    auto *probe = static_cast<Probe *>(client);
    trace.push_back(probe->name + ":" + std::to_string(code));
    if (probe->on_event) probe->on_event(code);
}

void attach(Port *port, Probe &probe, PortFilter filter = nullptr) {
    probe.id = vx::PortAttach(port, probe_listener, &probe, filter);
}

class Ports : public ::testing::Test {
  protected:
    void SetUp() override {
        reset_trace();
        baseline_ = live_blocks();
        port_ = vx::PortCreate(nullptr);
    }
    void TearDown() override {
        vx::PortDestroy(port_);
        reset_trace();
        EXPECT_EQ(live_blocks(), baseline_) << "a port or attachment leaked";
    }
    void notify(std::uint32_t code) { vx::PortNotify(port_, nullptr, code, nullptr); }
    Port *port_ = nullptr;
    std::int64_t baseline_ = 0;
};

TEST_F(Ports, DeliversInAttachOrderThroughAcceptingFiltersAndPastFailingListeners) {
    void *seen[2] = {};
    auto record = [](void *client, void *sender, std::uint32_t, void *data) {
        auto *s = static_cast<void **>(client);
        s[0] = sender;
        s[1] = data;
    };
    Probe a("a"), b("b"), c("c");
    attach(port_, a);
    attach(port_, b, [](void *, std::uint32_t code) { return code % 2 == 0 ? 1 : 0; });
    attach(port_, c);
    vx::PortAttach(port_, record, seen, nullptr);
    int sender = 0, data = 0;
    vx::PortNotify(port_, &sender, 7, &data);
    notify(8);
    EXPECT_EQ(trace, (Trace{"a:7", "c:7", "a:8", "b:8", "c:8"}));
    EXPECT_EQ(seen[0], nullptr);
    EXPECT_EQ(seen[1], nullptr);
    vx::PortNotify(port_, &sender, 9, &data);
    EXPECT_EQ(seen[0], &sender);
    EXPECT_EQ(seen[1], &data);

    // A failing listener is reported on the failure log, and delivery goes on.
    std::string line;
    log::set_sink([](void *client, int, const char *,
                     const char *text) { *static_cast<std::string *>(client) += text; },
                  &line);
    a.on_event = [](std::uint32_t) { fail(rc::refused, "listener refuses"); };
    reset_trace();
    notify(6);
    log::set_sink(nullptr, nullptr);
    EXPECT_EQ(trace, (Trace{"a:6", "b:6", "c:6"}));
    EXPECT_EQ(line.rfind("#[fail] <port>:", 0), 0u) << line;
    EXPECT_NE(line.find("listener refuses"), std::string::npos);
}

TEST_F(Ports, ListenersDetachedDuringDeliveryAreNotCalledAgainAndTheRestStillHear) {
    Probe a("a"), b("b"), c("c"), d("d");
    for (Probe *p : {&a, &b, &c, &d}) attach(port_, *p);
    // b removes itself, the one before it (already called) and the one after it.
    b.on_event = [&](std::uint32_t) {
        EXPECT_TRUE(vx::PortDetach(port_, b.id));
        EXPECT_FALSE(vx::PortDetach(port_, b.id)) << "detached, though not yet unlinked";
        EXPECT_EQ(vx::PortDetachListener(port_, probe_listener, &a), 1u);
        EXPECT_TRUE(vx::PortDetach(port_, c.id));
        EXPECT_EQ(vx::PortListenerCount(port_), 1u);
    };
    notify(1);
    notify(2);
    EXPECT_EQ(trace, (Trace{"a:1", "b:1", "d:1", "d:2"}));
    EXPECT_FALSE(vx::PortDetach(port_, b.id));
    EXPECT_FALSE(vx::PortDetach(port_, 0));
    EXPECT_FALSE(vx::PortDetach(nullptr, d.id));
}

TEST_F(Ports, NestedNotificationIsDeliveredInFullAndListenersAttachedMeanwhileWaitForIt) {
    Probe a("a"), b("b"), c("c"), late("late");
    for (Probe *p : {&a, &b, &c}) attach(port_, *p);
    // During event 1, b attaches a listener and sends event 2: that one reaches the new
    // listener (attached before it began), event 1 does not.
    b.on_event = [&](std::uint32_t code) {
        if (code != 1) return;
        attach(port_, late);
        notify(2);
    };
    // c detaches a during event 2, which event 1 has already passed.
    c.on_event = [&](std::uint32_t code) {
        if (code == 2) vx::PortDetach(port_, a.id);
    };
    notify(1);
    EXPECT_EQ(trace, (Trace{"a:1", "b:1", "a:2", "b:2", "c:2", "late:2", "c:1"}));
    notify(3);
    EXPECT_EQ(trace.back(), "late:3");
    EXPECT_EQ(vx::PortListenerCount(port_), 3u);
}

TEST_F(Ports, DestroyingAPortDuringItsDeliveryStopsItAndFreesItAfterwards) {
    Port *port = vx::PortCreate(nullptr);
    Probe a("a"), b("b"), c("c");
    for (Probe *p : {&a, &b, &c}) attach(port, *p);
    b.on_event = [&](std::uint32_t code) {
        if (code == 1) vx::PortNotify(port, nullptr, 2, nullptr);
    };
    a.on_event = [&](std::uint32_t code) {
        if (code != 2) return;
        vx::PortDestroy(port);
        vx::PortDestroy(port);  // a port waiting to be freed ignores a second release
        // Listeners may still reach it until delivery returns; it refuses new work.
        EXPECT_EQ(::PortAttach(port, probe_listener, &c, nullptr), 0u);
        vx::PortNotify(port, nullptr, 3, nullptr);
    };
    vx::PortNotify(port, nullptr, 1, nullptr);
    EXPECT_EQ(trace, (Trace{"a:1", "b:1", "a:2"}));  // TearDown checks it was freed
}

TEST_F(Ports, NotifyingAllocatesNothingEvenWhenAListenerDetaches) {
    struct Counter {
        Port *port;
        PortAttachment id;
        int calls;
    };
    auto count_once = [](void *client, void *, std::uint32_t, void *) {
        auto *counter = static_cast<Counter *>(client);
        ++counter->calls;
        vx::PortDetach(counter->port, counter->id);
    };
    Counter once{port_, 0, 0};
    once.id = vx::PortAttach(port_, count_once, &once, nullptr);
    vx::PortAttach(
        port_, [](void *, void *, std::uint32_t, void *) {}, nullptr, nullptr);
    const std::uint64_t before = test::thread_allocations();
    for (std::uint32_t code = 0; code < 4; ++code) notify(code);
    EXPECT_EQ(test::thread_allocations(), before);
    EXPECT_EQ(once.calls, 1);
}

TEST_F(Ports, BadArgumentsAndExhaustedMemoryLeaveEverythingAsItWas) {
    Probe a("a"), b("b");
    attach(port_, a);
    EXPECT_THROW(vx::PortAttach(port_, nullptr, nullptr, nullptr), Failure);
    EXPECT_EQ(::PortAttach(nullptr, probe_listener, &a, nullptr), 0u);
    EXPECT_EQ(VxLastFailure().code, VX_E_BADARG);
    {
        test::FailAllocation all(1, test::FailMode::from_then_on);
        EXPECT_EQ(::PortAttach(port_, probe_listener, &b, nullptr), 0u);
        EXPECT_EQ(::PortCreate(nullptr), nullptr);
        EXPECT_EQ(::PortCreate("port-test-oom"), nullptr);
    }
    EXPECT_EQ(VxLastFailure().code, VX_E_NOMEMORY);
    EXPECT_EQ(vx::PortLookup("port-test-oom"), nullptr) << "no half-made global port";
    notify(1);
    EXPECT_EQ(trace, (Trace{"a:1"}));
}

TEST(GlobalPorts, ANameIsOnePortKeptUntilItsLastReference) {
    reset_trace();
    const std::int64_t baseline = live_blocks();
    Port *first = vx::PortCreate("port-test-shared");
    Port *second = ::PortCreate("port-test-shared");
    EXPECT_EQ(first, second);
    EXPECT_EQ(vx::PortLookup("port-test-shared"), first);
    Port *anonymous = vx::PortCreate("");
    EXPECT_NE(anonymous, first) << "an empty name makes an anonymous port";
    vx::PortDestroy(anonymous);

    Probe a("a");
    attach(first, a);
    vx::PortDestroy(second);
    vx::PortNotify(vx::PortLookup("port-test-shared"), nullptr, 1, nullptr);
    EXPECT_EQ(trace, (Trace{"a:1"}));
    reset_trace();
    vx::PortDestroy(first);
    EXPECT_EQ(vx::PortLookup("port-test-shared"), nullptr);

    Port *again = vx::PortCreate("port-test-shared");
    EXPECT_EQ(vx::PortListenerCount(again), 0u) << "a new port, not the old one";
    vx::PortDestroy(again);
    EXPECT_EQ(live_blocks(), baseline);
}

TEST(GlobalPorts, ThreadsSharingNamesKeepTheCountsRight) {
    const std::int64_t baseline = live_blocks();
    Port *held = vx::PortCreate("port-test-thread-a");
    std::atomic<bool> wrong{false};
    auto worker = [&] {
        for (int i = 0; i < 2000; ++i) {
            Port *a = vx::PortCreate("port-test-thread-a");
            Port *b = vx::PortCreate("port-test-thread-b");
            if (a != held || vx::PortLookup("port-test-thread-b") != b) wrong = true;
            vx::PortDestroy(b);
            vx::PortDestroy(a);
        }
    };
    std::thread one(worker), two(worker);
    one.join();
    two.join();
    EXPECT_FALSE(wrong);
    EXPECT_EQ(vx::PortLookup("port-test-thread-b"), nullptr);
    vx::PortDestroy(held);
    EXPECT_EQ(vx::PortLookup("port-test-thread-a"), nullptr);
    EXPECT_EQ(live_blocks(), baseline);
}

// Several threads notify one port while others attach and detach: every notification reaches
// the listener that stays attached, and a listener never hears two deliveries at once.
TEST(GlobalPorts, ThreadsNotifyingOnePortAreDeliveredOneAtATime) {
    struct Counter {
        std::atomic<int> inside{0};
        std::atomic<int> heard{0};
        std::atomic<bool> overlapped{false};
    } counter;
    auto count = [](void *client, void *, std::uint32_t, void *) {
        auto *c = static_cast<Counter *>(client);
        if (c->inside.fetch_add(1) != 0) c->overlapped = true;
        c->heard.fetch_add(1);
        c->inside.fetch_sub(1);
    };
    auto ignore = [](void *, void *, std::uint32_t, void *) {};
    Port *port = vx::PortCreate("port-test-shared");
    vx::PortAttach(port, count, &counter, nullptr);
    constexpr int kEach = 3000;
    auto notifier = [&] {
        for (int i = 0; i < kEach; ++i) vx::PortNotify(port, nullptr, 1, nullptr);
    };
    auto churner = [&] {
        for (int i = 0; i < kEach; ++i) {
            PortAttachment a = vx::PortAttach(port, ignore, nullptr, nullptr);
            vx::PortDetach(port, a);
        }
    };
    std::thread one(notifier), two(notifier), three(churner);
    one.join();
    two.join();
    three.join();
    EXPECT_EQ(counter.heard.load(), 2 * kEach);
    EXPECT_FALSE(counter.overlapped);
    EXPECT_EQ(vx::PortListenerCount(port), 1u);
    vx::PortDestroy(port);
}

}  // namespace
}  // namespace vx
