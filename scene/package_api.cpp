// The C interface of packages and item types: argument checks and the guard around the
// registry's operations.
#include <vexor/package.h>

#include <cstdarg>
#include <cstring>

#include "foundation/guard.h"
#include "foundation/log.h"
#include "foundation/registry.h"
#include "scene/package_registry.h"

using namespace vx::cine;

namespace {

// Runs a setter of a definition; returns the definition, or null.
template <class Body>
void *set(const char *name, Body &&body) {
    return vx::guard<void *>(nullptr, [&] {
        PackageDef &def = definition(name);
        body(def);
        return static_cast<void *>(&def);
    });
}

int add_interface(std::vector<InterfaceEntry> PackageDef::*list, const char *name,
                  CineInterfaceFunc func, void *client, const char *guid) {
    return vx::guard(0, [&] {
        PackageDef &def = definition(name);
        (def.*list).push_back({func, canonical_guid(guid), client});
        return 1;
    });
}

// The type of a code after every known package has been resolved; null for unknown codes.
CinePackage *type_of(std::uint32_t code) noexcept {
    resolve_all();
    return type_by_code(code);
}

int test_type(std::uint32_t code, std::uint32_t ancestor) noexcept {
    for (CinePackage *p = type_of(code); p != nullptr; p = p->super) {
        if (p->type_code == ancestor) return 1;
    }
    return 0;
}

const char *own_tag(const CinePackage *pkg, const char *tag) noexcept {
    return pkg != nullptr ? vx::host::tag(pkg->server, tag) : nullptr;
}

const char *inherited_tag(const CinePackage *pkg, const char *tag) noexcept {
    for (; pkg != nullptr; pkg = pkg->super) {
        if (const char *value = own_tag(pkg, tag)) return value;
    }
    return nullptr;
}

int allowed(std::uint32_t code, const char *tag) noexcept {
    if (code < 1) return 1;
    const char *value = own_tag(type_of(code), tag);
    return value != nullptr && std::strcmp(value, "-") == 0 ? 0 : 1;
}

// The cache of types that carry a tag, built once so that the array handed out stays put. Only
// the mask tag is kept.
const std::uint32_t *validate_tag_types(const char *tag) {
    if (tag == nullptr || std::strcmp(tag, "isMaskItem") != 0) {
        VX_FAIL_LINE("Cine_ValidateTagTypes() unsupported tag:", tag);
        return nullptr;
    }
    resolve_all();
    Registry &r = registry();
    if (!r.masks_built) {
        std::vector<std::uint32_t> masks;
        for (CinePackage *pkg : r.types) {
            if (own_tag(pkg, tag) != nullptr) masks.push_back(pkg->type_code);
        }
        masks.push_back(0);
        r.masks = std::move(masks);
        r.masks_built = true;
    }
    return r.masks.data();
}

int supports_filter(void *client, std::uint32_t type, CineTypeList *) {
    return CineTypeSupportIfc(type, static_cast<const char *>(client));
}

}  // namespace

extern "C" {

VX_API const TextHint *CineUsageHints(void) {
    return usage_hints();
}

VX_API void CinePackageDefine(const char *name) {
    vx::guard([&] { define(name); });
}

VX_API uint32_t CineDefineType(uint32_t typeCode, int32_t superCode, const char *name) {
    return vx::guard(CINE_TYPE_NONE, [&] { return define_type(typeCode, superCode, name); });
}

VX_API int CinePackageAddChannel(const char *name, ...) {
    va_list tags;
    va_start(tags, name);
    int ok = vx::guard(0, [&] {
        append_tags(definition(name).channels, tags);
        return 1;
    });
    va_end(tags);
    return ok;
}

VX_API int CinePackageAddChannelDesc(const char *name, const CineChannelDesc *table,
                                     unsigned int count) {
    return vx::guard(0, [&] {
        PackageDef &def = definition(name);
        if (table == nullptr && count > 0) vx::fail(vx::rc::bad_argument, "no table");
        const std::size_t before = def.channels.size();
        vx::OnFailure rollback([&] {
            def.channels.erase(def.channels.begin() + static_cast<std::ptrdiff_t>(before),
                               def.channels.end());
        });
        for (unsigned int i = 0; i < count && table[i].name != nullptr; ++i) {
            const CineChannelDesc &rec = table[i];
            int ok = 0;
            if (rec.type == 1) {
                ok = CinePackageAddChannel(
                    def.name.c_str(), CINE_CH_NAME, rec.name, 1, static_cast<const char *>(nullptr),
                    CINE_CH_USAGE, rec.usage, CINE_CH_DEFAULT_INT,
                    static_cast<int>(rec.defaultValue), CINE_CH_HINTS, rec.hints, rec.hintFlag,
                    CINE_CH_NAME, static_cast<const char *>(nullptr));
            } else {
                if (rec.texture != 0xFFFFFFFFu) {
                    // Hosts filter these lines by the item module's source name.
                    vx::log::fail_line("item", __LINE__,
                                       "old-style texture channel definition:", rec.name);
                }
                ok = CinePackageAddChannel(def.name.c_str(), CINE_CH_NAME, rec.name, rec.type,
                                           static_cast<const char *>(nullptr), CINE_CH_USAGE,
                                           rec.usage, CINE_CH_DEFAULT, rec.defaultValue,
                                           CINE_CH_NAME, static_cast<const char *>(nullptr));
            }
            if (ok == 0) vx::fail(vx::last_failure().code, "a legacy channel was refused");
        }
        return 1;
    });
}

VX_API void *CinePackageAddChanFunc(const char *name, CineChanFunc func, void *client) {
    return set(name, [&](PackageDef &def) {
        def.chan_func = func;
        def.chan_data = client;
    });
}

VX_API void *CinePackageAttachFunc(const char *name, CineAttachFunc func, void *client) {
    return set(name, [&](PackageDef &def) {
        def.attach = func;
        def.attach_data = client;
    });
}

VX_API void *CinePackageAttachFunc2(const char *name, CineAttachFunc2 func, void *client,
                                    void *extra) {
    return set(name, [&](PackageDef &def) {
        def.attach2 = func;
        def.attach_data = client;
        def.attach2_extra = extra;
    });
}

VX_API void *CinePackageSetFuncs(const char *name, const CineItemFuncs *funcs) {
    return set(name, [&](PackageDef &def) { def.funcs = funcs; });
}

VX_API void *CinePackagePostLoadFunc(const char *name, CinePostLoadFunc func) {
    return set(name, [&](PackageDef &def) { def.post_load = func; });
}

VX_API void CinePackageSynthNameFuncDS(const char *name, CineSynthNameFunc func) {
    vx::guard([&] {
        if (name == nullptr) {
            registry().default_synth = func;
        } else {
            definition(name).synth_name = func;
        }
    });
}

VX_API void *CinePackageSetLocal(const char *name, void *first, CineLocalFunc setup, void *third) {
    return set(name, [&](PackageDef &def) {
        def.local_first = first;
        def.local_setup = setup;
        def.local_third = third;
    });
}

VX_API int CinePackageAddQueryFunc(const char *name, CineInterfaceFunc func, void *client,
                                   const char *guid) {
    return add_interface(&PackageDef::queries, name, func, client, guid);
}

VX_API int CinePackageSubObjectFunc(const char *name, CineInterfaceFunc func, void *client,
                                    const char *guid) {
    return add_interface(&PackageDef::sub_objects, name, func, client, guid);
}

VX_API unsigned int CinePackageSetDefault(const char *name, const char *channel,
                                          const double *values) {
    return vx::guard(0u, [&] { return set_default(name, channel, values); });
}

VX_API CinePackage *CinePackageFind(const char *name) {
    return find_package(name);
}

VX_API const char *CinePackageName(const CinePackage *pkg) {
    return pkg != nullptr ? pkg->name : nullptr;
}

VX_API uint32_t CinePackageItemType(CinePackage *pkg) {
    if (pkg == nullptr) return CINE_TYPE_NONE;
    return vx::guard(CINE_TYPE_NONE, [&] { return resolve(*pkg); });
}

VX_API void *CinePackageQueryIfc(CinePackage *pkg, const char *guid) {
    if (pkg == nullptr) return nullptr;
    return vx::guard<void *>(nullptr, [&] { return query(*pkg, guid); });
}

VX_API unsigned int CineItemPackageChannelCount(CinePackage *pkg) {
    if (pkg == nullptr || instantiate(*pkg) == nullptr) return 0;
    return pkg->channel_count;
}

VX_API uint32_t CineLookupType(const char *name) {
    return vx::guard(CINE_TYPE_NONE, [&] {
        CinePackage *pkg = package_named(name);
        return pkg != nullptr ? resolve(*pkg) : CINE_TYPE_NONE;
    });
}

VX_API unsigned int CineTypeCount(void) {
    if (!started()) return 0;
    resolve_all();
    return static_cast<unsigned int>(registry().types.size());
}

VX_API uint32_t CineTypeByIndex(unsigned int index) {
    if (index >= CineTypeCount()) return CINE_TYPE_NONE;
    return registry().types[index]->type_code;
}

VX_API const char *CineTypeName(uint32_t type) {
    CinePackage *pkg = type_of(type);
    return pkg != nullptr ? pkg->name : nullptr;
}

VX_API uint32_t CineLookupSuper(uint32_t type) {
    CinePackage *pkg = type_of(type);
    return pkg != nullptr && pkg->super != nullptr ? pkg->super->type_code : 0;
}

VX_API int CineTypeTest(uint32_t type, uint32_t ancestor) {
    return test_type(type, ancestor);
}

VX_API uint32_t CineTypeCommonAncestor(uint32_t a, uint32_t b) {
    for (CinePackage *p = type_of(a); p != nullptr; p = p->super) {
        if (test_type(b, p->type_code) != 0) return p->type_code;
    }
    return 0;
}

VX_API unsigned int CineSubTypeCount(uint32_t type) {
    CinePackage *pkg = type_of(type);
    return pkg != nullptr ? static_cast<unsigned int>(pkg->sub_types.size()) : 0;
}

VX_API const char *CineSubTypeName(uint32_t type, unsigned int index) {
    CinePackage *pkg = type_of(type);
    if (pkg == nullptr || index >= pkg->sub_types.size()) return nullptr;
    return pkg->sub_types[index]->name;
}

VX_API int CineTypeSupportIfc(uint32_t type, const char *guid) {
    return vx::guard(0, [&] {
        std::string canonical = canonical_guid(guid);
        for (CinePackage *p = type_of(type); p != nullptr; p = p->super) {
            if (instantiate(*p) != nullptr && reports(*p, canonical)) return 1;
        }
        return 0;
    });
}

VX_API int CineTypeMaySupportIfc(uint32_t type, const char *guid) {
    return vx::guard(0, [&] {
        std::string canonical = canonical_guid(guid);
        for (CinePackage *p = type_of(type); p != nullptr; p = p->super) {
            if (reports(*p, canonical)) return 1;
        }
        return 0;
    });
}

VX_API int CineTypeAddTag(uint32_t type, const char *tag, const char *value) {
    return vx::guard(0, [&] {
        HostServer *server = nullptr;
        if (CinePackage *pkg = type_of(type)) {
            server = pkg->server;
        } else {
            for (std::size_t i = 0; server == nullptr && i < vx::host::count(kPackageClass); ++i) {
                HostServer *s = vx::host::by_index(kPackageClass, i);
                const char *code = vx::host::tag(s, "internal.typeCode");
                if (code != nullptr && type != 0 && std::strtoul(code, nullptr, 10) == type) {
                    server = s;
                }
            }
        }
        if (server == nullptr) vx::fail(vx::rc::not_found, "no package has that type code");
        vx::host::add_tag(server, tag, value);
        return 1;
    });
}

VX_API const char *CineTypeGetTag(uint32_t type, const char *tag, int inherit) {
    if (type < 1) return nullptr;
    CinePackage *pkg = type_of(type);
    return inherit != 0 ? inherited_tag(pkg, tag) : own_tag(pkg, tag);
}

VX_API int CineTypeIsMask(uint32_t type) {
    if (type < 1) return 0;
    return inherited_tag(type_of(type), "isMaskItem") != nullptr ? 1 : 0;
}

VX_API const uint32_t *CineMaskTypes(void) {
    return vx::guard<const uint32_t *>(nullptr, [] { return validate_tag_types("isMaskItem"); });
}

VX_API unsigned int CineTypesOfTag(const char *tag, uint32_t *codes, unsigned int capacity) {
    if (tag == nullptr || !started()) return 0;
    resolve_all();
    unsigned int n = 0;
    for (CinePackage *pkg : registry().types) {
        if (own_tag(pkg, tag) == nullptr) continue;
        if (codes != nullptr && n < capacity) codes[n] = pkg->type_code;
        ++n;
    }
    return n;
}

VX_API int CineTypeCreateOK(uint32_t type) {
    return allowed(type, "pkg.createCmd");
}

VX_API int CineTypeConvertOK(uint32_t type) {
    return allowed(type, "pkg.convertCmd");
}

VX_API CineTypeList *CineTypeListCreate(CineTypeFilterFunc filter, void *client, int lazy) {
    if (filter == nullptr) return nullptr;
    return vx::guard<CineTypeList *>(nullptr, [&] {
        Registry &r = registry();
        auto list = std::make_unique<CineTypeList>();
        list->filter = filter;
        list->client = client;
        list->lazy = lazy != 0;
        if (!list->lazy) {
            resolve_all();
            build_list(*list);
        }
        r.lists.push_front(list.get());
        return list.release();
    });
}

VX_API CineTypeList *CineTypeListIfcCreate(const char *guid) {
    return vx::guard<CineTypeList *>(nullptr, [&] {
        std::string canonical = canonical_guid(guid);
        Registry &r = registry();
        auto list = std::make_unique<CineTypeList>();
        list->filter = supports_filter;
        list->guid = std::move(canonical);
        list->client = list->guid.data();
        r.lists.push_front(list.get());
        return list.release();
    });
}

VX_API const uint32_t *CineTypeListArray(CineTypeList *list) {
    if (list == nullptr) return nullptr;
    return vx::guard<const uint32_t *>(nullptr, [&] {
        if (!list->built) {
            resolve_all();
            build_list(*list);
        }
        return list->array.data();
    });
}

VX_API unsigned int CineTypeListCount(CineTypeList *list) {
    if (CineTypeListArray(list) == nullptr) return 0;
    return static_cast<unsigned int>(list->codes.size());
}

VX_API int CineTypeListTest(CineTypeList *list, uint32_t type) {
    if (CineTypeListArray(list) == nullptr) return 0;
    return list->codes.count(type) != 0 ? 1 : 0;
}

VX_API void CineTypeListInvalidate(CineTypeList *list) {
    if (list == nullptr) return;
    list->built = false;
    list->array.clear();
}

VX_API void CineTypeListDestroy(CineTypeList *list) {
    destroy_list(list);
}

VX_API unsigned int CineChannelVectorSize(unsigned int mode) {
    return vector_size(mode);
}
}
