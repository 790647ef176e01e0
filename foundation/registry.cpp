// The registry of servers: classes of named servers with factories, tags and watchers.
#include "foundation/registry.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "foundation/failure.h"

struct HostServer {
    struct Tag {
        std::string name;
        const char *value;  // points into the registry's text store
    };
    std::string cls;
    std::string name;
    vx::host::Factory factory = nullptr;
    void *data = nullptr;
    std::vector<Tag> tags;
    // Every value ever given to a tag of this server. A deque keeps the texts in place, so a
    // value read before the tag was replaced stays readable while the server lives.
    std::deque<std::string> texts;
};

namespace vx::host {
namespace {

struct WatcherEntry {
    std::string cls;
    Watcher watcher;
    void *client;
};

struct ProviderEntry {
    std::string cls;
    Provider provider;
    void *client;
};

struct Registry {
    std::mutex mutex;
    unsigned starts = 0;
    std::vector<std::unique_ptr<HostServer>> servers;  // in order of registration
    std::vector<WatcherEntry> watchers;
    std::vector<ProviderEntry> providers;
};

Registry &registry() noexcept {
    static Registry r;
    return r;
}

bool same(const char *a, const std::string &b) noexcept {
    return a != nullptr && b == a;
}

HostServer *find(Registry &r, const char *cls, const char *name) noexcept {
    for (const auto &server : r.servers) {
        if (same(cls, server->cls) && same(name, server->name)) return server.get();
    }
    return nullptr;
}

bool registered(Registry &r, const HostServer *server) noexcept {
    for (const auto &s : r.servers) {
        if (s.get() == server) return true;
    }
    return false;
}

bool usable(const char *text) noexcept {
    return text != nullptr && text[0] != '\0';
}

}  // namespace

void start() {
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    ++r.starts;
}

void stop() noexcept {
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    if (r.starts == 0) return;
    if (--r.starts == 0) {
        r.servers.clear();
        r.watchers.clear();
        r.providers.clear();
    }
}

bool started() noexcept {
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    return r.starts > 0;
}

HostServer *add_built_in(const char *cls, const char *name, Factory factory, void *data) {
    if (!usable(cls) || !usable(name)) fail(rc::bad_argument, "a server needs a class and a name");
    Registry &r = registry();
    std::vector<WatcherEntry> heard;
    HostServer *server = nullptr;
    {
        std::lock_guard lock(r.mutex);
        if (r.starts == 0) fail(rc::refused, "the server registry is not started");
        server = find(r, cls, name);
        if (server != nullptr) {
            server->factory = factory;
            server->data = data;
            return server;
        }
        for (const auto &w : r.watchers) {
            if (same(cls, w.cls)) heard.push_back(w);
        }
        auto fresh = std::make_unique<HostServer>();
        fresh->cls = cls;
        fresh->name = name;
        fresh->factory = factory;
        fresh->data = data;
        server = fresh.get();
        r.servers.push_back(std::move(fresh));
    }
    for (const auto &w : heard) w.watcher(w.client, server);
    return server;
}

bool remove(HostServer *server) noexcept {
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    for (auto it = r.servers.begin(); it != r.servers.end(); ++it) {
        if (it->get() == server) {
            r.servers.erase(it);
            return true;
        }
    }
    return false;
}

void add_tag(HostServer *server, const char *tag, const char *value) {
    if (server == nullptr || !usable(tag))
        fail(rc::bad_argument, "a tag needs a server and a name");
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    if (!registered(r, server)) fail(rc::not_found, "the server is not registered");
    server->texts.emplace_back(value != nullptr ? value : "");
    const char *text = server->texts.back().c_str();
    for (auto &t : server->tags) {
        if (t.name == tag) {
            t.value = text;
            return;
        }
    }
    try {
        server->tags.push_back({tag, text});
    } catch (...) {
        server->texts.pop_back();
        throw;
    }
}

const char *tag(const HostServer *server, const char *tag) noexcept {
    if (server == nullptr || tag == nullptr) return nullptr;
    std::lock_guard lock(registry().mutex);
    for (const auto &t : server->tags) {
        if (t.name == tag) return t.value;
    }
    return nullptr;
}

HostServer *lookup(const char *cls, const char *name) noexcept {
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    return find(r, cls, name);
}

HostServer *require(const char *cls, const char *name) {
    Registry &r = registry();
    ProviderEntry asked{};
    {
        std::lock_guard lock(r.mutex);
        if (HostServer *server = find(r, cls, name)) return server;
        auto it = std::find_if(r.providers.begin(), r.providers.end(),
                               [&](const ProviderEntry &p) { return same(cls, p.cls); });
        if (it == r.providers.end() || name == nullptr) return nullptr;
        asked.provider = it->provider;
        asked.client = it->client;
    }
    asked.provider(asked.client, cls, name);
    return lookup(cls, name);
}

void set_provider(const char *cls, Provider provider, void *client) {
    if (!usable(cls)) fail(rc::bad_argument, "a provider needs a class");
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    if (r.starts == 0) fail(rc::refused, "the server registry is not started");
    r.providers.reserve(r.providers.size() + 1);  // so that replacing cannot lose the old one
    std::erase_if(r.providers, [&](const ProviderEntry &p) { return same(cls, p.cls); });
    if (provider != nullptr) r.providers.push_back({cls, provider, client});
}

const char *name_of(const HostServer *server) noexcept {
    return server != nullptr ? server->name.c_str() : nullptr;
}

const char *class_of(const HostServer *server) noexcept {
    return server != nullptr ? server->cls.c_str() : nullptr;
}

std::size_t count(const char *cls) noexcept {
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    std::size_t n = 0;
    for (const auto &s : r.servers) {
        if (same(cls, s->cls)) ++n;
    }
    return n;
}

HostServer *by_index(const char *cls, std::size_t index) noexcept {
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    for (const auto &s : r.servers) {
        if (same(cls, s->cls) && index-- == 0) return s.get();
    }
    return nullptr;
}

void *allocate(HostServer *server) {
    if (server == nullptr) fail(rc::bad_argument, "no server");
    Factory factory = nullptr;
    void *data = nullptr;
    {
        Registry &r = registry();
        std::lock_guard lock(r.mutex);
        if (!registered(r, server)) fail(rc::not_found, "the server is not registered");
        factory = server->factory;
        data = server->data;
    }
    if (factory == nullptr) fail(rc::not_found, "the server has no factory");
    void *object = factory(data);
    if (object == nullptr) fail(rc::failed, "the server's factory made no object");
    return object;
}

void watch(const char *cls, Watcher watcher, void *client) {
    if (!usable(cls) || watcher == nullptr) fail(rc::bad_argument, "a watcher needs a class");
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    if (r.starts == 0) fail(rc::refused, "the server registry is not started");
    r.watchers.push_back({cls, watcher, client});
}

std::size_t unwatch(const char *cls, Watcher watcher, void *client) noexcept {
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    std::size_t removed = 0;
    for (auto it = r.watchers.begin(); it != r.watchers.end();) {
        if (same(cls, it->cls) && it->watcher == watcher && it->client == client) {
            it = r.watchers.erase(it);
            ++removed;
        } else {
            ++it;
        }
    }
    return removed;
}

}  // namespace vx::host
