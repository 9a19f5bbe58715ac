#include "tools/clampcat/ShapeTable.h"

#include "vorlan/clamp/MsgClampC.h"

#include <algorithm>

namespace Clampcat {

namespace {

// Makes a site as good as new. A new one in its place would do the same, but a site leaves the manager's list
// only after a walk through all the younger ones, which makes ten thousand of them ten times slower than
// this.
void renew(MsgClamp& site) {
    site.flush();
    // A site that refused something starts afresh after a flush, so let it refuse something: nothing is held
    // on this way, and the prefix that counts the refused message is thrown away.
    MsgClamp* cell = &site;
    while (!clampedMsg(&cell)) {
    }
    site.flush();
    droppedMsg(&cell);
}

} // namespace

MsgClamp& ShapeTable::siteOf(Fingerprint shape) {
    auto const found = m_index.find(shape);
    if (found != m_index.end()) {
        m_entries.splice(m_entries.begin(), m_entries, found->second);
    } else {
        ++m_shapes;
        if (m_entries.size() < m_limit) {
            addEntry(shape);
        } else {
            reuseOldest(shape);
        }
    }
    Entry& entry = m_entries.front();
    if (++entry.messages > m_flushAfter) {
        entry.site.flush();
        entry.messages = 1;
    }
    return entry.site;
}

void ShapeTable::flush() const {
    std::for_each(m_entries.rbegin(), m_entries.rend(), [](Entry const& entry) { entry.site.flush(); });
}

void ShapeTable::addEntry(Fingerprint shape) {
    m_entries.emplace_front();
    m_entries.front().shape = shape;
    m_index.emplace(shape, m_entries.begin());
}

void ShapeTable::reuseOldest(Fingerprint shape) {
    m_entries.splice(m_entries.begin(), m_entries, std::prev(m_entries.end()));
    Entry& entry = m_entries.front();
    renew(entry.site);
    auto node = m_index.extract(entry.shape); // used again, so that a full table allocates nothing more
    node.key() = entry.shape = shape;
    m_index.insert(std::move(node));
    entry.messages = 0;
}

} // namespace Clampcat
