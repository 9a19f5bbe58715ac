// ShapeTable.h: a MsgClamp for each shape seen of late.
#pragma once

#include "tools/clampcat/Shape.h"
#include "vorlan/clamp/MsgClamp.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <unordered_map>

namespace Clampcat {

/// Keeps the sites of the shapes seen last, up to a limit; a shape beyond it takes the place of the one not
/// seen for the longest time, which is flushed first.
class ShapeTable {
public:
    /// A site counts its refused messages in 32 bits and prints them signed. One with this many messages is
    /// flushed, so that no count ever turns negative.
    static constexpr std::uint32_t kFlushAfter = 2'000'000'000;

    /// At most `limit` shapes, at least 1.
    explicit ShapeTable(std::size_t limit, std::uint32_t flushAfter = kFlushAfter)
        : m_limit(limit), m_flushAfter(flushAfter) {}

    /// The site for the next message of a shape.
    MsgClamp& siteOf(Fingerprint shape);

    /// Releases what the sites hold, in the order in which their shapes were last seen.
    void flush() const;

    /// The shapes so far. One that came back after it had lost its place counts again.
    std::uint64_t shapes() const { return m_shapes; }

private:
    struct Entry {
        MsgClamp site;
        Fingerprint shape;
        std::uint32_t messages = 0; // since the shape came or was last flushed for their number
    };
    using Entries = std::list<Entry>;

    struct Hash {
        std::size_t operator()(Fingerprint shape) const { return static_cast<std::size_t>(shape.low); }
    };

    void addEntry(Fingerprint shape);
    void reuseOldest(Fingerprint shape);

    std::size_t const m_limit;
    std::uint32_t const m_flushAfter;
    Entries m_entries; // last seen first
    std::unordered_map<Fingerprint, Entries::iterator, Hash> m_index;
    std::uint64_t m_shapes = 0;
};

} // namespace Clampcat
