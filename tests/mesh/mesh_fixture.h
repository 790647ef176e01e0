// Shared pieces of the mesh tests: the module started for each test, a log of the events a
// port delivers, and helpers to build small meshes through the C interface.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include <vexor/mesh.h>
#include <vexor/port.h>

namespace vx::test {

inline constexpr std::uint32_t kFace = VX_CODE4('F', 'A', 'C', 'E');
inline constexpr std::uint32_t kCurve = VX_CODE4('C', 'U', 'R', 'V');

struct HeardEvent {
    void *sender;
    std::uint32_t mask;
    Mesh *mesh;
    bool operator==(const HeardEvent &) const = default;
};

// Listens on a port. The buffer is reserved so that hearing never allocates during an edit
// whose allocations are being counted or failed.
class EventLog {
  public:
    explicit EventLog(Port *port) : port_(port) {
        events_.reserve(256);
        attachment_ = PortAttach(port, &hear, this, nullptr);
        logs().insert(this);
    }
    ~EventLog() {
        logs().erase(this);
        if (port_ != nullptr) PortDetach(port_, attachment_);
    }
    // Destroys a mesh; logs on its port stop listening with it.
    static int destroy_mesh(Mesh *mesh) {
        Port *port = MeshEventPort(mesh);
        const int destroyed = MeshDestroy(mesh);
        if (destroyed != 0) {
            for (EventLog *log : logs()) {
                if (log->port_ == port) log->port_ = nullptr;
            }
        }
        return destroyed;
    }
    EventLog(const EventLog &) = delete;
    EventLog &operator=(const EventLog &) = delete;

    std::vector<HeardEvent> take() {
        std::vector<HeardEvent> heard = events_;
        events_.clear();
        return heard;
    }
    std::vector<std::uint32_t> masks() {
        std::vector<std::uint32_t> out;
        for (const HeardEvent &e : take()) out.push_back(e.mask);
        return out;
    }
    std::size_t count() const { return events_.size(); }

  private:
    static std::set<EventLog *> &logs() {
        static std::set<EventLog *> all;
        return all;
    }
    static void hear(void *client, void *sender, std::uint32_t code, void *data) {
        auto *log = static_cast<EventLog *>(client);
        if (log->events_.size() < log->events_.capacity()) {
            log->events_.push_back({sender, code, static_cast<Mesh *>(data)});
        }
    }
    Port *port_;
    std::uint64_t attachment_ = 0;
    std::vector<HeardEvent> events_;
};

inline int destroy_mesh(Mesh *mesh) {
    return EventLog::destroy_mesh(mesh);
}

class MeshTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(MeshStartup(), 1); }
    void TearDown() override { MeshShutdown(); }
};

// The module started and one empty mesh made for the test.
class OnMesh : public MeshTest {
  protected:
    void SetUp() override {
        MeshTest::SetUp();
        mesh = MeshCreate();
        ASSERT_NE(mesh, nullptr);
    }
    void TearDown() override {
        if (mesh != nullptr) destroy_mesh(mesh);
        MeshTest::TearDown();
    }
    Mesh *mesh = nullptr;
};

inline MeshVertex *vertex(Mesh *mesh, double x, double y = 0.0, double z = 0.0) {
    const double p[3] = {x, y, z};
    return MeshNewVertex(mesh, p);
}

// A row of `n` vertices at x = 0, 1, ...
inline std::vector<MeshVertex *> vertices(Mesh *mesh, int n) {
    std::vector<MeshVertex *> out;
    for (int i = 0; i < n; ++i) out.push_back(vertex(mesh, i));
    return out;
}

// The vertices of a polygon in its order.
inline std::vector<MeshVertex *> polygon_vertices(const MeshPolygon *polygon) {
    std::vector<MeshVertex *> out;
    for (unsigned i = 0; i < MeshNumVrtInPol(polygon); ++i) {
        out.push_back(MeshPolVrtByIndex(polygon, static_cast<int>(i)));
    }
    return out;
}

// The live vertices of a mesh as their x coordinates, in index order.
inline std::string vertex_xs(const Mesh *mesh) {
    std::string out;
    for (unsigned i = 0; MeshVrtByIndex(mesh, i) != nullptr; ++i) {
        double p[3];
        MeshVertexPos(mesh, MeshVrtByIndex(mesh, i), p);
        out += std::to_string(static_cast<int>(p[0])) + " ";
    }
    return out;
}

}  // namespace vx::test
