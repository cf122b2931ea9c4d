#include "apply_model.h"

#include <stdint.h>
#include <stdlib.h>

#include <algorithm>

#include "bundle_writer.h"
#include "test_util.h"

namespace {

uint32_t Le32(const std::string &bytes, size_t at)
{
    uint32_t v = 0;
    for (int i = 3; i >= 0; i--) v = (v << 8) | (unsigned char)bytes.at(at + i);
    return v;
}

struct Entry {
    std::string raw;  // the 26 name bytes as stored
    uint32_t offset, size, key;
    uint8_t flags, variant;
    std::string Name() const { return raw.substr(0, raw.find('\0')); }
    std::string Bytes() const
    {
        return raw + U32(offset) + U32(size) + U32(key) + std::string(1, (char)flags) +
               std::string(1, (char)variant);
    }
};

struct Bundle {
    std::string head;  // 27 bytes
    std::vector<Entry> table;
    uint32_t tableOffset() const { return Le32(head, 12); }
};

Bundle Parse(const std::string &bytes)
{
    Bundle b;
    b.head = bytes.substr(0, 27);
    uint32_t count = Le32(bytes, 8);
    for (uint32_t i = 0; i < count; i++) {
        size_t at = b.tableOffset() + 40 * (size_t)i;
        Entry e;
        e.raw = bytes.substr(at, 26);
        e.offset = Le32(bytes, at + 26);
        e.size = Le32(bytes, at + 30);
        e.key = Le32(bytes, at + 34);
        e.flags = (uint8_t)bytes.at(at + 38);
        e.variant = (uint8_t)bytes.at(at + 39);
        b.table.push_back(e);
    }
    return b;
}

void Put(std::string &file, size_t at, const std::string &bytes)
{
    if (file.size() < at + bytes.size()) file.resize(at + bytes.size(), '\0');
    file.replace(at, bytes.size(), bytes);
}

std::string Lower(std::string text)
{
    for (char &c : text)
        if (c >= 'A' && c <= 'Z') c = (char)(c - 'A' + 'a');
    return text;
}

bool Before(const Entry &a, const Entry &b)
{
    std::string x = Lower(a.Name()), y = Lower(b.Name());
    if (x != y) return std::lexicographical_compare(x.begin(), x.end(), y.begin(), y.end(),
                                                    [](char l, char r) { return (unsigned char)l < (unsigned char)r; });
    if (a.variant != b.variant) return a.variant < b.variant;
    return a.flags < b.flags;
}

double Date(const std::string &head) { return atof(head.substr(16, 11).c_str()); }

std::string BaseName(const std::string &name)
{
    size_t dot = name.rfind('.');
    return dot == std::string::npos ? name : name.substr(0, dot);
}

}  // namespace

int ModelApply(std::string &bundle, const std::string &update)
{
    Bundle b = Parse(bundle), u = Parse(update);
    if (Date(b.head) > Date(u.head)) return -5;
    std::vector<Entry> &table = b.table;
    uint32_t position = b.tableOffset();
    bool superseded = false;
    auto markRun = [&](int m, auto supersedes) {
        if (m < 0) return;
        const std::string name = table[m].Name();
        for (size_t j = m; j < table.size() && table[j].Name() == name; j++) {
            if (!supersedes(table[j])) continue;
            table[j].flags = 1;
            superseded = true;
        }
    };
    auto append = [&](Entry e) {
        Put(bundle, position, update.substr(e.offset, e.size));
        e.offset = position;
        position += e.size;
        table.push_back(e);
    };
    for (size_t i = 0; i < u.table.size(); i++) {
        const Entry up = u.table[i];
        int m = -1;
        for (size_t j = 0; j < table.size() && m < 0; j++)
            if (table[j].Name() == up.Name() && !(table[j].flags & 1)) m = (int)j;
        if (up.flags & 0x20) {
            markRun(m, [&](const Entry &e) {
                return e.key == up.key && e.size == up.size && !(e.flags & 0x10) && e.variant == up.variant;
            });
        } else if (up.flags & 0x10) {
            markRun(m, [&](const Entry &e) { return !(e.flags & 0x10) && e.variant == up.variant; });
            append(up);
        } else {
            markRun(m, [](const Entry &) { return true; });
            append(up);
            if (i + 1 < u.table.size() && u.table[i + 1].Name() == up.Name()) append(u.table[++i]);
        }
    }
    std::stable_sort(table.begin(), table.end(), Before);
    std::string tableBytes;
    for (const Entry &e : table) tableBytes += e.Bytes();
    Put(bundle, position, tableBytes);
    std::string date = u.head.substr(16, 11);
    date = date.substr(0, date.find('\0'));
    date.resize(11, '\0');
    Put(bundle, 0, b.head.substr(0, 8) + U32((uint32_t)table.size()) + U32(position) + date);
    return superseded ? 1 : 0;
}

std::string ModelCompact(const std::string &bundle, const std::vector<std::string> *chartList)
{
    Bundle b = Parse(bundle);
    std::vector<Entry> &t = b.table;
    auto listed = [&](const Entry &e) {
        if (!chartList) return false;
        std::string base = Lower(BaseName(e.Name()));
        for (const std::string &chart : *chartList)
            if (Lower(chart.substr(0, 26)) == base) return true;
        return false;
    };
    for (Entry &e : t)
        if (!listed(e)) e.flags |= 1;
    auto markOlder = [](Entry &l, Entry &r) { (l.offset < r.offset ? l : r).flags |= 1; };
    for (size_t i = 0; i + 1 < t.size(); i++) {
        if (t[i].Name() != t[i + 1].Name()) continue;
        if (t[i].variant == t[i + 1].variant) markOlder(t[i], t[i + 1]);
        if (t[i].key == t[i + 1].key && t[i].size == t[i + 1].size) markOlder(t[i], t[i + 1]);
    }
    auto nameAt = [&](size_t i, int delta) {
        long j = (long)i + delta;
        return j < 0 || j >= (long)t.size() ? std::string() : t[j].Name();
    };
    for (size_t i = 0; i < t.size(); i++) {
        if (!(t[i].flags & 1) || !listed(t[i])) continue;
        std::string name = t[i].Name();
        if (name != nameAt(i, -1) && name != nameAt(i, 1)) {
            t[i].flags = 0;
        } else if (i + 1 < t.size() && name == nameAt(i, 1) && (t[i + 1].flags & 1) && name != nameAt(i, -1) &&
                   name != nameAt(i, 2)) {
            t[i].flags = 0;
            t[i + 1].flags = 0;
        }
    }
    std::string out = b.head;
    uint32_t kept = 0;
    for (Entry &e : t) {
        if (e.flags & 1) {
            e.raw = std::string("zzzzzzzzzz") + '\0' + e.raw.substr(11);
            continue;
        }
        std::string blob = bundle.substr(e.offset, e.size);
        e.offset = (uint32_t)out.size();
        e.flags = 0;
        out += blob;
        kept++;
    }
    std::stable_sort(t.begin(), t.end(), Before);
    uint32_t tableOffset = (uint32_t)out.size();
    for (uint32_t i = 0; i < kept; i++) out += t[i].Bytes();
    Put(out, 0, U32(0) + b.head.substr(4, 4) + U32(kept) + U32(tableOffset));
    return out;
}

std::string ModelFinalize(const std::string &bundle, bool compact, const std::vector<std::string> *chartList)
{
    std::string out = compact ? ModelCompact(bundle, chartList) : bundle;
    Put(out, 0, U32(ReferenceBundleCrc(out)));
    return out;
}
