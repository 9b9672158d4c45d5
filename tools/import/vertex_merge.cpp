#include "vertex_merge.h"

#include <algorithm>
#include <memory>

#include <velpick/host/huge_pages.h>

namespace velpick::detail {
namespace {

// Mixes all bits of the three coordinates into all 64 bits: the table takes its slot from the
// low half and a tag from the high half.
std::uint64_t positionHash(const std::int32_t* c) {
    std::uint64_t h = static_cast<std::uint32_t>(c[0]) * 0x9E3779B97F4A7C15ull ^
                      static_cast<std::uint32_t>(c[1]) * 0xC2B2AE3D27D4EB4Full ^
                      static_cast<std::uint32_t>(c[2]) * 0x165667B19E3779F9ull;
    h ^= h >> 32;
    h *= 0xD6E8FEB86659FD93ull;
    return h ^ (h >> 32);
}

// An open-addressing table of input vertices, at most half full. A slot holds a vertex number
// in its low bits (as many as the count needs) and, in the bits above, a tag taken from the
// vertex's hash: probes compare coordinates only when the tags agree, so a collision rarely
// costs a read of a far-away vertex, and the table stays 4 bytes a slot.
class PositionTable {
  public:
    explicit PositionTable(std::size_t count) {
        std::size_t capacity = 16;
        while (capacity < 2 * count)
            capacity *= 2;
        m_mask = capacity - 1;
        // Vertex numbers stay below the all-ones number field, so no entered slot is kEmpty.
        int numberBits = 1;
        while (numberBits < 32 && (std::uint64_t{1} << numberBits) - 1 < count)
            ++numberBits;
        m_tagMask = static_cast<std::uint32_t>(~((std::uint64_t{1} << numberBits) - 1));
        // Not value-initialised: filled once, with the empty mark.
        m_slots.reset(new std::uint32_t[capacity]);
        // Probes land anywhere in the table: huge pages spare address translations.
        MStlAdviseHugePages(m_slots.get(), capacity * sizeof(std::uint32_t));
        std::fill_n(m_slots.get(), capacity, kEmpty);
    }

    void Prefetch(std::uint64_t hash) const { __builtin_prefetch(&m_slots[hash & m_mask]); }

    // The first vertex entered at the position of vertex v, entering v when there is none.
    std::uint32_t FirstAt(const std::int32_t* units, std::uint32_t v, std::uint64_t hash) {
        const std::int32_t* c = units + 3 * std::size_t{v};
        const std::uint32_t tag = static_cast<std::uint32_t>(hash >> 32) & m_tagMask;
        for (std::size_t s = hash & m_mask;; s = (s + 1) & m_mask) {
            const std::uint32_t slot = m_slots[s];
            if (slot == kEmpty) {
                m_slots[s] = tag | v;
                return v;
            }
            if ((slot & m_tagMask) != tag)
                continue;
            const std::uint32_t other = slot & ~m_tagMask;
            const std::int32_t* o = units + 3 * std::size_t{other};
            if (o[0] == c[0] && o[1] == c[1] && o[2] == c[2])
                return other;
        }
    }

  private:
    static constexpr std::uint32_t kEmpty = UINT32_MAX;

    std::unique_ptr<std::uint32_t[]> m_slots;
    std::size_t m_mask = 0;
    std::uint32_t m_tagMask = 0;
};

}  // namespace

// Slots are reached in no order, so each vertex's first slot is fetched some vertices ahead.
void FindFirstOfEqualVertices(const std::int32_t* units, std::size_t count, std::uint32_t* first) {
    constexpr std::size_t kLookAhead = 32;
    PositionTable table(count);
    for (std::size_t v = 0; v < count; ++v) {
        if (v + kLookAhead < count)
            table.Prefetch(positionHash(units + 3 * (v + kLookAhead)));
        first[v] = table.FirstAt(units, static_cast<std::uint32_t>(v), positionHash(units + 3 * v));
    }
}

}  // namespace velpick::detail
