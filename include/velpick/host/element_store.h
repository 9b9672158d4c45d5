#pragma once

// Storage of one kind of mesh element: large chunks that are never moved or freed while the
// mesh lives, so element addresses stay valid, iteration is a pointer walk through a few
// contiguous arrays, and releasing a mesh frees a handful of chunks instead of every element.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

#include <velpick/host/huge_pages.h>

/// Elements of type T in creation order, in chunks of kChunkSize. Element i is never moved.
/// T must be trivially destructible: chunks are released without visiting their elements.
template <class T>
class MStlElementStore {
  public:
    static_assert(std::is_trivially_destructible_v<T>, "elements are released with their chunk");
    static constexpr std::size_t kChunkShift = 14;
    static constexpr std::size_t kChunkSize = std::size_t{1} << kChunkShift;
    /// Element indices are 32-bit: mask indices and vertex references are stored in 32 bits.
    static constexpr std::size_t kMaxSize = UINT32_MAX;

    MStlElementStore() = default;
    MStlElementStore(const MStlElementStore&) = delete;
    MStlElementStore& operator=(const MStlElementStore&) = delete;

    std::size_t Size() const { return m_size; }
    T& operator[](std::size_t i) const { return Chunk(i >> kChunkShift)[i & (kChunkSize - 1)]; }

    /// Room for `count` elements in all: the missing chunks are allocated now, as one block
    /// that asks for huge pages, so a store filled to a known size is a few large blocks.
    void Reserve(std::size_t count) {
        const std::size_t chunks = (count + kChunkSize - 1) >> kChunkShift;
        const std::size_t held = m_chunks.size() + m_spare.size();
        if (chunks > held) {
            m_chunks.reserve(chunks);
            AddBlock(chunks - held);
        }
    }

    /// Constructs element Size() in place and returns it; throws std::length_error beyond
    /// kMaxSize elements.
    template <class... Args>
    T& Emplace(Args&&... args) {
        if (m_size == m_chunks.size() * kChunkSize) {
            if (m_size >= kMaxSize)
                throw std::length_error("more than 2^32 - 1 mesh elements of one kind");
            if (m_spare.empty())
                AddBlock(1);
            m_chunks.push_back(m_spare.back());
            m_spare.pop_back();
        }
        T* slot = reinterpret_cast<T*>(m_chunks.back()->bytes) + (m_size & (kChunkSize - 1));
        T* element = new (slot) T(std::forward<Args>(args)...);
        ++m_size;
        return *element;
    }

    std::size_t ChunkCount() const { return m_chunks.size(); }
    /// The first element of chunk k; the chunk holds ChunkLength(k) elements.
    T* Chunk(std::size_t k) const { return std::launder(reinterpret_cast<T*>(m_chunks[k]->bytes)); }
    std::size_t ChunkLength(std::size_t k) const {
        return k + 1 < m_chunks.size() ? kChunkSize : m_size - (k << kChunkShift);
    }

  private:
    struct Storage {
        alignas(T) unsigned char bytes[kChunkSize * sizeof(T)];
    };

    // Appends `count` chunks to the spare ones, in one allocation; on failure nothing changes.
    void AddBlock(std::size_t count) {
        m_blocks.reserve(m_blocks.size() + 1);
        m_spare.reserve(m_spare.size() + count);
        // Default-initialised: the bytes are written as elements are made, so clearing a fresh
        // block first would only add a pass over memory.
        std::unique_ptr<Storage[]> block(new Storage[count]);
        MStlAdviseHugePages(block.get(), count * sizeof(Storage));
        m_spare.insert(m_spare.begin(), count, nullptr);  // the next chunk is taken from the back
        for (std::size_t k = 0; k < count; ++k)
            m_spare[count - 1 - k] = block.get() + k;
        m_blocks.push_back(std::move(block));
    }

    std::vector<std::unique_ptr<Storage[]>> m_blocks;  // owns every chunk
    std::vector<Storage*> m_chunks;                    // chunk k holds elements from k << shift
    std::vector<Storage*> m_spare;                     // allocated, not yet used; next at back
    std::size_t m_size = 0;
};

/// Walks a store from its first element to its last, chunk by chunk.
template <class T, class Element = T>
class MStlStoreIterator {
  public:
    explicit MStlStoreIterator(const MStlElementStore<T>& store) : m_store(&store) {
        EnterChunk(0);
    }

    explicit operator bool() const { return m_current != m_chunkEnd; }
    Element& operator*() const { return *m_current; }
    Element* operator->() const { return m_current; }
    MStlStoreIterator& operator++() {
        if (++m_current == m_chunkEnd)
            EnterChunk(m_nextChunk);
        return *this;
    }
    template <class End>
    bool operator!=(End) const {
        return m_current != m_chunkEnd;
    }

  private:
    void EnterChunk(std::size_t k) {
        if (k >= m_store->ChunkCount() || m_store->ChunkLength(k) == 0)
            return;
        m_current = m_store->Chunk(k);
        m_chunkEnd = m_current + m_store->ChunkLength(k);
        m_nextChunk = k + 1;
    }

    const MStlElementStore<T>* m_store;
    T* m_current = nullptr;
    T* m_chunkEnd = nullptr;
    std::size_t m_nextChunk = 0;
};
