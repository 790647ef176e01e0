// Component objects through the C interface: defining classes and interfaces, looking
// interfaces up by GUID text, reference counts, running out of memory, and threads racing to
// define the same class.
#include "foundation/foundation_fixture.h"

#include <vexor/sys/component.h>

#include "foundation/component.h"

namespace vx {
namespace {

constexpr const char *kCounterGuid = "{0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9}";
constexpr const char *kNamedGuid = "{11111111-2222-3333-4444-555555555555}";

// A small class for the tests: a counter with two interfaces.
struct Counter {
    int value;
    int *destroyed;  // bumped by the destroy function
};

struct CounterMethods {
    XObjectMethods object;
    int (*Bump)(void *obj);
};

struct NamedMethods {
    XObjectMethods object;
    const char *(*Name)(void *obj);
};

int bump(void *obj) {
    return ++static_cast<Counter *>(obj)->value;
}
const char *counter_name(void *) {
    return "counter";
}

void count_destroy(void *obj) {
    auto *counter = static_cast<Counter *>(obj);
    if (counter->destroyed != nullptr) ++*counter->destroyed;
}

const CounterMethods kCounterMethods = {XOBJECT_METHODS_INIT, bump};
const NamedMethods kNamedMethods = {XOBJECT_METHODS_INIT, counter_name};

// Defined once for the whole binary: the registry lives as long as the process.
void define_counter() {
    ASSERT_EQ(XObjectDefineClass("test.counter", sizeof(Counter), count_destroy), VX_OK);
    ASSERT_EQ(XObjectAddInterface("test.counter", kCounterGuid, &kCounterMethods), VX_OK);
    ASSERT_EQ(XObjectAddInterface("test.counter", kNamedGuid, &kNamedMethods), VX_OK);
}

Counter *new_counter(int *destroyed) {
    void *obj = nullptr;
    EXPECT_EQ(XObjectAllocate("test.counter", &obj), VX_OK);
    auto *counter = static_cast<Counter *>(obj);
    if (counter != nullptr) counter->destroyed = destroyed;
    return counter;
}

TEST(Component, ClassesAreDefinedOnceByNameAndAllocateZeroFilledObjects) {
    define_counter();
    // The same definition again is harmless; another one under the name is refused.
    EXPECT_EQ(XObjectDefineClass("test.counter", sizeof(Counter), count_destroy), VX_OK);
    EXPECT_EQ(XObjectDefineClass("test.counter", sizeof(Counter) + 8, count_destroy), VX_E_REFUSED);
    EXPECT_EQ(XObjectDefineClass("test.counter", sizeof(Counter), nullptr), VX_E_REFUSED);
    EXPECT_EQ(XObjectDefineClass(nullptr, 8, nullptr), VX_E_BADARG);
    EXPECT_EQ(XObjectDefineClass("", 8, nullptr), VX_E_BADARG);
    EXPECT_EQ(XObjectDefineClass(std::string(64, 'n').c_str(), 8, nullptr), VX_E_BADARG);
    EXPECT_EQ(XObjectDefineClass(std::string(63, 'n').c_str(), 8, nullptr), VX_OK);

    void *obj = &obj;
    EXPECT_EQ(XObjectAllocate("test.nothing", &obj), VX_E_NOTFOUND);
    EXPECT_EQ(obj, nullptr);
    EXPECT_EQ(XObjectAllocate("test.counter", nullptr), VX_E_BADARG);

    ASSERT_EQ(XObjectAllocate("test.counter", &obj), VX_OK);
    const auto *bytes = static_cast<const unsigned char *>(obj);
    for (std::size_t i = 0; i < sizeof(Counter); ++i) ASSERT_EQ(bytes[i], 0u) << i;
    EXPECT_STREQ(XObjectClassName(obj), "test.counter");
    EXPECT_EQ(XObjectClassName(nullptr), nullptr);

    // Instance data of an empty class is allowed; every object is its own block.
    ASSERT_EQ(XObjectDefineClass("test.empty", 0, nullptr), VX_OK);
    void *a = nullptr;
    void *b = nullptr;
    ASSERT_EQ(XObjectAllocate("test.empty", &a), VX_OK);
    ASSERT_EQ(XObjectAllocate("test.empty", &b), VX_OK);
    EXPECT_NE(a, b);
    XObjectRelease(a);
    XObjectRelease(b);
    XObjectRelease(obj);
}

TEST(Component, InterfacesAreAddedCheckedAndFoundByGuidTextInAnyCaseAndAddARef) {
    define_counter();
    int destroyed = 0;
    Counter *counter = new_counter(&destroyed);
    ASSERT_NE(counter, nullptr);

    for (const char *guid :
         {"{0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9}", "{0a1b2c3d-4e5f-6071-8293-a4b5c6d7e8f9}",
          "{0a1B2c3D-4E5f-6071-8293-a4B5c6D7e8F9}"}) {
        void *table = nullptr;
        ASSERT_EQ(XObjectQueryInterface(counter, guid, &table), VX_OK) << guid;
        EXPECT_EQ(table, &kCounterMethods);
        EXPECT_EQ(com::ref_count(counter), 2u);
        XObjectRelease(counter);
    }

    // Through a table's common entries: another interface of the same object, same count.
    void *table = nullptr;
    ASSERT_EQ(XObjectQueryInterface(counter, kCounterGuid, &table), VX_OK);
    const auto *methods = static_cast<const CounterMethods *>(table);
    EXPECT_EQ(methods->Bump(counter), 1);
    void *named = nullptr;
    ASSERT_EQ(methods->object.QueryInterface(counter, kNamedGuid, &named), VX_OK);
    EXPECT_STREQ(static_cast<const NamedMethods *>(named)->Name(counter), "counter");
    EXPECT_EQ(methods->object.AddRef(counter), 4u);
    EXPECT_EQ(methods->object.Release(counter), 3u);
    EXPECT_EQ(static_cast<const NamedMethods *>(named)->object.Release(counter), 2u);
    EXPECT_EQ(methods->object.Release(counter), 1u);

    // A well-formed GUID the class lacks is not found; a malformed one is a bad argument.
    table = &table;
    EXPECT_EQ(XObjectQueryInterface(counter, "{D1D0261F-22CF-4E5D-822E-76B5DEC98AE4}", &table),
              VX_E_NOTFOUND);
    EXPECT_EQ(table, nullptr);
    const char *const malformed[] = {"0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9",
                                     "{0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F}",
                                     "{0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9}x",
                                     "{0A1B2C3D-4E5F-6071-8293_A4B5C6D7E8F9}",
                                     "{0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8G9}",
                                     "",
                                     nullptr};
    for (const char *bad : malformed) {
        EXPECT_EQ(XObjectQueryInterface(counter, bad, &table), VX_E_BADARG)
            << (bad != nullptr ? bad : "null");
        EXPECT_EQ(table, nullptr);
    }
    EXPECT_EQ(XObjectQueryInterface(nullptr, kCounterGuid, &table), VX_E_BADARG);
    EXPECT_EQ(XObjectQueryInterface(counter, kCounterGuid, nullptr), VX_E_BADARG);
    EXPECT_EQ(com::ref_count(counter), 1u) << "failed queries add no reference";

    XObjectRelease(counter);
    EXPECT_EQ(destroyed, 1);

    // The same table again is harmless, in any case; another table under the GUID is not.
    EXPECT_EQ(XObjectAddInterface("test.counter", "{0a1b2c3d-4e5f-6071-8293-a4b5c6d7e8f9}",
                                  &kCounterMethods),
              VX_OK);
    EXPECT_EQ(XObjectAddInterface("test.counter", kCounterGuid, &kNamedMethods), VX_E_REFUSED);
    EXPECT_EQ(com::interface_count(*com::find_class("test.counter")), 2u);

    const CounterMethods missing_release = {{XObjectAddRef, nullptr, XObjectQueryInterface}, bump};
    const char *guid = "{99999999-8888-7777-6666-555555555555}";
    EXPECT_EQ(XObjectAddInterface("test.counter", guid, &missing_release), VX_E_BADARG);
    EXPECT_EQ(XObjectAddInterface("test.counter", guid, nullptr), VX_E_BADARG);
    EXPECT_EQ(XObjectAddInterface("test.counter", "{99999999}", &kCounterMethods), VX_E_BADARG);
    EXPECT_EQ(XObjectAddInterface("test.nothing", guid, &kCounterMethods), VX_E_NOTFOUND);
    EXPECT_EQ(com::interface_count(*com::find_class("test.counter")), 2u);
}

// An alias names an interface wherever its GUID would; an alias keeps the GUID it was first
// given.
TEST(Component, GuidAliasesStandForTheirGuidInQueries) {
    define_counter();
    int destroyed = 0;
    Counter *counter = new_counter(&destroyed);
    ASSERT_NE(counter, nullptr);
    com::add_guid_alias("test.counterAlias", "{0a1b2c3d-4e5f-6071-8293-a4b5c6d7e8f9}");
    com::add_guid_alias("test.counterAlias", kCounterGuid);  // the same again: nothing
    EXPECT_STREQ(com::resolve_guid("test.counterAlias"), kCounterGuid);
    EXPECT_STREQ(com::resolve_guid("test.unknownAlias"), "test.unknownAlias");
    EXPECT_EQ(com::find_interface(counter, "test.counterAlias"), &kCounterMethods);
    void *table = nullptr;
    ASSERT_EQ(XObjectQueryInterface(counter, "test.counterAlias", &table), VX_OK);
    EXPECT_EQ(table, &kCounterMethods);
    XObjectRelease(counter);
    EXPECT_THROW(com::add_guid_alias("test.counterAlias", kNamedGuid), Failure);
    EXPECT_THROW(com::add_guid_alias("", kNamedGuid), Failure);
    EXPECT_THROW(com::add_guid_alias("test.badGuid", "0A1B2C3D"), Failure);
    EXPECT_STREQ(com::resolve_guid("test.badGuid"), "test.badGuid");
    XObjectRelease(counter);
    EXPECT_EQ(destroyed, 1);
}

TEST(Component, TheLastReleaseDestroysAndFreesExactlyOnce) {
    define_counter();
    const auto live = test::alloc_counts();
    int destroyed = 0;
    Counter *counter = new_counter(&destroyed);
    ASSERT_NE(counter, nullptr);
    EXPECT_EQ(XObjectAddRef(counter), 2u);
    EXPECT_EQ(XObjectRelease(counter), 1u);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(XObjectRelease(counter), 0u);
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(test::live_blocks(), live.live_blocks);
    EXPECT_EQ(test::alloc_counts().live_bytes, live.live_bytes);

    EXPECT_EQ(XObjectAddRef(nullptr), 0u);
    EXPECT_EQ(XObjectRelease(nullptr), 0u);

    // References taken and dropped on many threads at once: still one destruction.
    counter = new_counter(&destroyed);
    ASSERT_NE(counter, nullptr);
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([counter] {
            for (int i = 0; i < 2000; ++i) {
                void *table = nullptr;
                if (XObjectQueryInterface(counter, kNamedGuid, &table) == VX_OK) {
                    XObjectRelease(counter);
                }
                XObjectAddRef(counter);
                XObjectRelease(counter);
            }
        });
    }
    for (std::thread &t : threads) t.join();
    EXPECT_EQ(com::ref_count(counter), 1u);
    EXPECT_EQ(destroyed, 1);
    XObjectRelease(counter);
    EXPECT_EQ(destroyed, 2);
}

TEST(Component, AllocationFailuresReturnNoMemoryAndLeaveNothing) {
    define_counter();
    const auto live = test::alloc_counts();
    void *obj = &obj;
    {
        test::FailAllocation fail(1);
        EXPECT_EQ(XObjectAllocate("test.counter", &obj), VX_E_NOMEMORY);
    }
    EXPECT_EQ(obj, nullptr);
    EXPECT_EQ(VxLastFailure().code, VX_E_NOMEMORY);
    {
        test::FailAllocation fail(1);
        EXPECT_EQ(XObjectDefineClass("test.never", 4, nullptr), VX_E_NOMEMORY);
    }
    {
        test::FailAllocation fail(1);
        EXPECT_EQ(XObjectAddInterface("test.counter", "{12345678-1234-1234-1234-123456789ABC}",
                                      &kCounterMethods),
                  VX_E_NOMEMORY);
    }
    EXPECT_EQ(com::find_class("test.never"), nullptr);
    EXPECT_EQ(com::interface_count(*com::find_class("test.counter")), 2u);
    EXPECT_EQ(test::live_blocks(), live.live_blocks);
}

TEST(Component, ThreadsRacingToDefineAClassRegisterItOnce) {
    constexpr int kThreads = 16;
    std::atomic<int> ready{0};
    std::vector<com::Class *> seen(kThreads, nullptr);
    std::vector<unsigned int> codes(kThreads, 1);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            ready.fetch_add(1);
            while (ready.load() < kThreads) std::this_thread::yield();
            unsigned int code = XObjectDefineClass("test.raced", sizeof(Counter), count_destroy);
            if (code == VX_OK) code = XObjectAddInterface("test.raced", kNamedGuid, &kNamedMethods);
            codes[static_cast<std::size_t>(t)] = code;
            seen[static_cast<std::size_t>(t)] = com::find_class("test.raced");
        });
    }
    for (std::thread &t : threads) t.join();
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(codes[static_cast<std::size_t>(t)], VX_OK);
        EXPECT_EQ(seen[static_cast<std::size_t>(t)], seen[0]);
    }
    ASSERT_NE(seen[0], nullptr);
    EXPECT_EQ(com::interface_count(*seen[0]), 1u);
}

}  // namespace
}  // namespace vx
