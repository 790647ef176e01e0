// Transforms: the item types of placed items and their transforms, the chains that link them
// in the scene graph "xfrmCore", partners and pre-transforms in "xfrmLocal", the standard
// members of a chain, and the matrices read through an evaluator.
//
// Chain order is application order: the first member is applied to a point first, and the
// placed item's local matrix is the product of its members' matrices in chain order (row
// vectors, foundation/matrix4.h). A standard full chain, first to last:
//     pivotComp, pivotRotationComp, scale, shear, rotation, pivotRotation, pivot, translation
// The pivot's partner (its forward link in "xfrmLocal") is its compensation, whose matrix is
// always the inverse of the pivot's; the same holds for the pivot rotation and its
// compensation. Standard members are recognised by the item tag kStdTag, whose text is the
// kind's name; other members of a chain are the user's own.
#pragma once

#include <cstdint>
#include <vector>

#include "foundation/log.h"
#include "foundation/matrix4.h"

struct Cinema;
struct CineItem;
struct CineEval;
struct LinkGraph;

// A failure line under the module's source name.
#define XFRM_FAIL(message, argument) ::vx::log::fail_line("iloc", __LINE__, (message), (argument))

namespace vx::xfrm {

// Type codes.
inline constexpr std::uint32_t kLocatorType = 3;
inline constexpr std::uint32_t kLightType = 5;
inline constexpr std::uint32_t kCameraType = 6;
inline constexpr std::uint32_t kGroupLocatorType = 17;
inline constexpr std::uint32_t kTransformType = 18;
inline constexpr std::uint32_t kTranslationType = 19;
inline constexpr std::uint32_t kRotationType = 20;
inline constexpr std::uint32_t kScaleType = 21;
inline constexpr std::uint32_t kShearType = 22;
inline constexpr std::uint32_t kCoreType = 24;

// Channels of a placed item, fixed from 0.
enum CoreChannel : std::uint32_t {
    kLocalMatrix = 0,
    kParentMatrix,
    kWposMatrix,
    kWrotMatrix,
    kWsclMatrix,
    kWpivPosMatrix,
    kWpivRotMatrix,
    kWorldMatrix,
    kWParentMatrix,
    kInheritPos,
    kInheritRot,
    kInheritScl,
    kCoreChannels
};

// Channels of a transform: "matrix" and "type", then the subtype's own from index 2.
inline constexpr std::uint32_t kMatrix = 0;
inline constexpr std::uint32_t kTypeChannel = 1;
inline constexpr std::uint32_t kFirstOwn = 2;
inline constexpr std::uint32_t kOrderChannel = 5;  // of a rotation, after "rot.X/Y/Z"

// Standard kinds.
enum Kind : int {
    kScale = 0,
    kRotation,
    kTranslation,
    kPivot,
    kPivotComp,
    kShear,
    kPivotRotation,
    kPivotRotationComp,
    kKinds
};

// The item tag that marks a standard member: 'XSTD'.
inline constexpr std::uint32_t kStdTag = 0x58535444u;

const char *kind_name(int kind) noexcept;
// The kind of that name (exact comparison), or -1.
int kind_named(const char *name) noexcept;
// The transform type of a kind.
std::uint32_t kind_type(int kind) noexcept;

// ---- Module (xfrm_types.cpp) ----
// Defines the types, the graphs and the modifiers once per start of the scene module.
void start();
void stop() noexcept;

// ---- Settings (xfrm_settings.cpp) ----
int default_rotation_order() noexcept;
void set_default_rotation_order(int order) noexcept;
int auto_transforms() noexcept;
void set_auto_transforms(int flag) noexcept;

// ---- Chains (xfrm_chain.cpp) ----
LinkGraph *core_graph(const Cinema &scene) noexcept;
LinkGraph *local_graph(const Cinema &scene) noexcept;
bool is_placed(const CineItem *item) noexcept;
bool is_transform(const CineItem *item) noexcept;
// The chain of a placed item, first to last (empty for other items).
std::vector<CineItem *> chain_of(const CineItem &item);
std::size_t chain_size(const CineItem &item) noexcept;
CineItem *chain_at(const CineItem &item, std::size_t index) noexcept;
// The item a transform places, or null.
CineItem *root_of(const CineItem &transform) noexcept;
// A transform's partner (its first forward link in "xfrmLocal" when that is a transform).
CineItem *partner_of(const CineItem &transform) noexcept;
// The transform whose partner this one is, or null: this one is then a compensation.
CineItem *compensated_by(const CineItem &transform) noexcept;
std::vector<CineItem *> pre_transforms_of(const CineItem &item);
// The kind of a standard member, or -1.
int kind_of(const CineItem &transform) noexcept;
// The nearest ancestor (in the "parent" graph) that is a placed item, or null.
CineItem *placed_parent(const CineItem &item) noexcept;

// Undoable edits, each one undo step; a failure changes nothing.
CineItem &add_transform(CineItem &item, std::uint32_t type);
bool move_relative(CineItem &transform, CineItem &target, bool after);
// The standard member of the kind, made (with its partner for pivots) when missing and
// `create` is set; null when missing.
CineItem *std_transform(CineItem &item, int kind, bool create);
// Makes the standard member; raises rc::refused when it exists.
CineItem &add_std_transform(CineItem &item, int kind);
CineItem *legacy_channel(CineItem &item, const char *name, int *component, int *kind);

// Writes links directly, for loading scene files (undo is suspended then); false when the
// link exists.
bool link_chain_now(CineItem &transform, CineItem &item);
bool link_local_now(CineItem &from, CineItem &to);

// ---- Matrices (xfrm_matrices.cpp) ----
// A matrix channel as the evaluator sees it. Raises the evaluator's failures.
mat::Matrix4 read_matrix(CineEval &eval, const CineItem &item, std::uint32_t channel);
mat::Matrix4 build(CineEval &eval, CineItem &item, const CineItem *transform,
                   const mat::Matrix4 &matrix);
mat::Matrix4 extract(CineEval &eval, CineItem &item, int kind, const mat::Matrix4 &matrix);

// ---- Modifiers (xfrm_modifiers.cpp) ----
void register_modifiers();

// ---- Scene files (xfrm_io.cpp) ----
void register_io();
void unregister_io() noexcept;

}  // namespace vx::xfrm
