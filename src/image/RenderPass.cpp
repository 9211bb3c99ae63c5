#include "image/RenderPass.h"

#include <algorithm>
#include <cstring>
#include <unordered_set>

#include "image/ParallelFor.h"

namespace qm {

namespace {

// Zeroes the pixels of `out` outside `inside` (which lies within out.rect).
void clearOutside(const ImageTile& out, const PixelRect& inside) {
    const PixelRect& r = out.rect;
    for (int y = r.y; y < r.maxY(); ++y) {
        float* row = out.row(y);
        if (inside.isEmpty() || y < inside.y || y >= inside.maxY()) {
            std::memset(row, 0, sizeof(float) * 4 * size_t(r.width));
            continue;
        }
        std::memset(row, 0, sizeof(float) * 4 * size_t(inside.x - r.x));
        std::memset(row + 4 * (inside.maxX() - r.x), 0, sizeof(float) * 4 * size_t(r.maxX() - inside.maxX()));
    }
}

// Copies what `from` has of out.rect and zeroes the rest.
void copyInto(const ConstImageTile& from, const ImageTile& out) {
    const PixelRect common = from.rect.intersection(out.rect);
    if (common != out.rect) clearOutside(out, common);
    for (int y = common.y; y < common.maxY(); ++y)
        std::memcpy(out.at(common.x, y), from.at(common.x, y), sizeof(float) * 4 * size_t(common.width));
}

}  // namespace

RenderPass::RenderPass(const ImageNode& root, const PixelRect& region, int threadCount)
    : _threadCount(threadCount) {
    plan(root, region);
    loadAll();
    prepareAll();
}

void RenderPass::loadAll() {
    std::vector<const ImageNode*> sources;
    for (const ImageNode* node : _order) {
        if (node->needsLoading() && !_entries[node].needed.isEmpty()) sources.push_back(node);
    }
    if (sources.size() == 1) {
        sources.front()->load();
    } else if (sources.size() > 1) {
        parallelFor(sources.size(), [&](size_t index) { sources[index]->load(); });
    }
}

void RenderPass::plan(const ImageNode& root, const PixelRect& region) {
    // Depth-first post-order gives inputs before users; reversed, users come first, so that a
    // node's needs are complete before they are passed on to its inputs.
    std::unordered_set<const ImageNode*> seen;
    std::vector<std::pair<const ImageNode*, size_t>> stack{{&root, 0}};
    seen.insert(&root);
    while (!stack.empty()) {
        auto& [node, next] = stack.back();
        if (next < node->inputs().size()) {
            const ImageNode* input = &node->input(next++);
            if (seen.insert(input).second) stack.push_back({input, 0});
            continue;
        }
        _order.push_back(node);
        stack.pop_back();
    }
    std::reverse(_order.begin(), _order.end());

    for (const ImageNode* node : _order) _entries[node];
    _entries[&root].needed = region.intersection(root.pixelBounds());
    for (const ImageNode* node : _order) {
        const PixelRect needed = _entries[node].needed;
        if (needed.isEmpty()) continue;
        for (size_t i = 0; i < node->inputs().size(); ++i) {
            const ImageNode& input = node->input(i);
            Entry& entry = _entries[&input];
            const PixelRect roi = node->regionOfInterest(i, needed).intersection(input.pixelBounds());
            entry.needed = entry.needed.unionWith(roi);
            if (node->sharesInput(i) && !roi.isEmpty()) entry.shared = true;
        }
    }
}

void RenderPass::prepareAll() {
    constexpr int kSharedTile = 256;
    for (auto it = _order.rbegin(); it != _order.rend(); ++it) {
        const ImageNode& node = **it;
        Entry& entry = _entries[&node];
        if (entry.needed.isEmpty()) continue;
        if (node.needsPreparation()) entry.prepared = node.prepare(*this, entry.needed);
        if (!entry.shared) continue;
        const PixelRect r = entry.needed;
        ScratchLease pixels = ScratchLease::acquire(size_t(r.area()) * 4);
        const ImageTile whole{r, pixels.data(), std::ptrdiff_t(r.width) * 4};
        const int columns = (r.width + kSharedTile - 1) / kSharedTile;
        const int rows = (r.height + kSharedTile - 1) / kSharedTile;
        parallelFor(size_t(columns) * rows, [&](size_t index) {
            const int cx = int(index % columns);
            const int cy = int(index / columns);
            const PixelRect tile = PixelRect{r.x + cx * kSharedTile, r.y + cy * kSharedTile, kSharedTile, kSharedTile}.intersection(r);
            renderInto(node, whole.subTile(tile));
        });
        entry.pixels = std::move(pixels);
        entry.rendered = true;
    }
}

void RenderPass::renderInto(const ImageNode& node, const ImageTile& out) {
    if (out.rect.isEmpty()) return;
    const PixelRect inside = out.rect.intersection(node.pixelBounds());
    if (inside.isEmpty()) {
        clearOutside(out, inside);
        return;
    }
    const auto it = _entries.find(&node);
    if (it != _entries.end() && it->second.rendered) {
        const Entry& entry = it->second;
        copyInto(ConstImageTile(entry.needed, entry.pixels.data(), std::ptrdiff_t(entry.needed.width) * 4), out);
        return;
    }
    if (inside != out.rect) clearOutside(out, inside);
    node.render(*this, out.subTile(inside));
}

TileView RenderPass::view(const ImageNode& node, const PixelRect& rect) {
    const auto it = _entries.find(&node);
    if (it != _entries.end() && it->second.rendered && it->second.needed.contains(rect)) {
        const Entry& entry = it->second;
        const ConstImageTile whole(entry.needed, entry.pixels.data(), std::ptrdiff_t(entry.needed.width) * 4);
        return TileView(ConstImageTile(rect, whole.at(rect.x, rect.y), whole.rowStride), ScratchLease());
    }
    ScratchLease lease = ScratchLease::acquire(size_t(std::max<long long>(rect.area(), 1)) * 4);
    const ImageTile tile{rect, lease.data(), std::ptrdiff_t(rect.width) * 4};
    renderInto(node, tile);
    return TileView(tile, std::move(lease));
}

const PreparedData* RenderPass::prepared(const ImageNode& node) const {
    const auto it = _entries.find(&node);
    return it == _entries.end() ? nullptr : it->second.prepared.get();
}

void RenderPass::parallelFor(size_t count, const std::function<void(size_t)>& body) const {
    qm::parallelFor(count, _threadCount, body);
}

void RenderPass::renderTiles(const ImageNode& node, const PixelRect& region, int tileSize,
                             const std::function<void(const ConstImageTile&)>& consume) {
    if (region.isEmpty()) return;
    const int columns = (region.width + tileSize - 1) / tileSize;
    const int rows = (region.height + tileSize - 1) / tileSize;
    parallelFor(size_t(columns) * rows, [&](size_t index) {
        const int cx = int(index % columns);
        const int cy = int(index / columns);
        // Rows of tiles are laid from the top down, so tiles start on even memory rows.
        const PixelRect r =
            PixelRect{region.x + cx * tileSize, region.maxY() - (cy + 1) * tileSize, tileSize, tileSize}.intersection(
                region);
        ScratchLease lease = ScratchLease::acquire(size_t(r.area()) * 4);
        const ImageTile tile{r, lease.data(), std::ptrdiff_t(r.width) * 4};
        renderInto(node, tile);
        consume(tile);
    });
}

}  // namespace qm
