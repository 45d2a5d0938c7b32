// Where a result read in rowid order stands: the rowid of every Step-th row,
// noted as the rows are stepped over. A window far from the statement's
// position is then read from the nearest noted rowid on ("... where rowid >=
// ?1 order by rowid") instead of from the first row.
//
// A mark says "the row at place i * Step has this rowid". It holds while no
// row before it comes, goes or changes its rowid; when one does, every mark
// from that rowid on stands one place off, and RowChanged drops them. That
// rule lives here only.
#pragma once

#include <QtGlobal>
#include <algorithm>
#include <vector>

namespace brindle {

class TRowidMarks {
public:
    static constexpr int Step = 2048;

    void Clear() { FRowids.clear(); }
    bool Empty() const { return FRowids.empty(); }
    // Whether the row at Place (from 0) is the next to be noted.
    bool Wants(qint64 Place) const {
        return Place % Step == 0 && Place / Step == static_cast<qint64>(FRowids.size());
    }
    void Note(qint64 Rowid) { FRowids.push_back(Rowid); }
    // Every mark at once, as a scan of the whole result found them.
    void Adopt(std::vector<qint64> Rowids) { FRowids = std::move(Rowids); }
    qint64 Count() const { return static_cast<qint64>(FRowids.size()); }
    // The nearest mark at or below Place other than the first row's (from
    // the first row a statement simply starts again): its place and rowid.
    bool Nearest(qint64 Place, qint64& MarkPlace, qint64& Rowid) const {
        if (FRowids.empty()) return false;
        const size_t mark = std::min(static_cast<size_t>(Place / Step), FRowids.size() - 1);
        if (mark < 1) return false;
        MarkPlace = static_cast<qint64>(mark) * Step;
        Rowid = FRowids[mark];
        return true;
    }
    // A row with this rowid was inserted or deleted, or a row's rowid
    // changed from or to it: the marks from it on are off by a place.
    void RowChanged(qint64 Rowid) {
        const auto first = std::lower_bound(FRowids.begin(), FRowids.end(), Rowid);
        FRowids.erase(first, FRowids.end());
    }

private:
    std::vector<qint64> FRowids;  // ascending, as the rows come
};

}  // namespace brindle
