#include "vertex_merge.h"

#include <algorithm>
#include <memory>
#include <string>

#include "import_failure.h"

#include <velpick/host/huge_pages.h>

namespace velpick::detail {
namespace {

// Numbers share a 32-bit slot with a tag, and the all-ones slot marks an empty one.
constexpr std::size_t kMaxNumberedPositions = 2147483647;

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
    // Room for `count` vertices, numbered below `count`.
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

    // Enters vertex v, known to be at a position not yet entered.
    void Enter(std::uint32_t v, std::uint64_t hash) {
        std::size_t s = hash & m_mask;
        while (m_slots[s] != kEmpty)
            s = (s + 1) & m_mask;
        m_slots[s] = (static_cast<std::uint32_t>(hash >> 32) & m_tagMask) | v;
    }

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

// Each vertex's first slot is fetched this many vertices ahead: slots are reached in no order.
constexpr std::size_t kLookAhead = 32;
// Most corners are found among the recent positions: the table is fetched further ahead.
constexpr std::size_t kCornerLookAhead = 96;
// The recent positions: 4096 of 16 bytes, a slot picked by hash bits the table uses last.
constexpr std::size_t kRecentMask = 4095;
constexpr int kRecentShift = 20;

}  // namespace

class PositionNumbering::Table : public PositionTable {
    using PositionTable::PositionTable;
};

PositionNumbering::PositionNumbering(std::size_t expectedCount)
    : m_recent(kRecentMask + 1, {0, 0, 0, -1}), m_tableRoom(16) {
    while (m_tableRoom < expectedCount)
        m_tableRoom *= 2;
    m_positions.reserve(3 * m_tableRoom);
    m_table = std::make_unique<Table>(m_tableRoom);
}

PositionNumbering::~PositionNumbering() = default;

// A table of twice the room, filled again from the positions: they are distinct, so nothing is
// compared.
void PositionNumbering::grow() {
    if (2 * m_tableRoom > kMaxNumberedPositions + 1)
        throw ImportFailure("more than " + std::to_string(kMaxNumberedPositions) +
                            " distinct vertices");
    m_table.reset();  // the old table goes before the new one is made: the peak stays lower
    m_tableRoom *= 2;
    m_table = std::make_unique<Table>(m_tableRoom);
    for (std::size_t n = 0; n < m_count; ++n)
        m_table->Enter(static_cast<std::uint32_t>(n), positionHash(&m_positions[3 * n]));
}

void PositionNumbering::Number(const std::int32_t* units, std::size_t count,
                               std::uint32_t* numbers) {
    m_hashes.resize(count);
    for (std::size_t i = 0; i < count; ++i)
        m_hashes[i] = positionHash(units + 3 * i);
    if (m_positions.size() < 3 * (m_count + count))
        m_positions.resize(3 * (m_count + count));
    for (std::size_t i = 0; i < count; ++i) {
        if (i + kCornerLookAhead < count)
            m_table->Prefetch(m_hashes[i + kCornerLookAhead]);
        if (m_count == m_tableRoom)
            grow();
        const std::int32_t* position = units + 3 * i;
        std::array<std::int32_t, 4>& recent = m_recent[(m_hashes[i] >> kRecentShift) & kRecentMask];
        if (recent[0] == position[0] && recent[1] == position[1] && recent[2] == position[2] &&
            recent[3] >= 0) {
            numbers[i] = static_cast<std::uint32_t>(recent[3]);
            continue;
        }
        // The position goes in as the next number and stays only when the table had none equal.
        std::copy_n(position, 3, &m_positions[3 * m_count]);
        const auto next = static_cast<std::uint32_t>(m_count);
        numbers[i] = m_table->FirstAt(m_positions.data(), next, m_hashes[i]);
        m_count += numbers[i] == next;
        recent = {position[0], position[1], position[2], static_cast<std::int32_t>(numbers[i])};
    }
}

// Slots are reached in no order, so each vertex's first slot is fetched some vertices ahead.
void FindFirstOfEqualVertices(const std::int32_t* units, std::size_t count, std::uint32_t* first) {
    PositionTable table(count);
    for (std::size_t v = 0; v < count; ++v) {
        if (v + kLookAhead < count)
            table.Prefetch(positionHash(units + 3 * (v + kLookAhead)));
        first[v] = table.FirstAt(units, static_cast<std::uint32_t>(v), positionHash(units + 3 * v));
    }
}

}  // namespace velpick::detail
