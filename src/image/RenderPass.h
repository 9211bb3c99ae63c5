#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

#include "image/ImageNode.h"
#include "image/ImageTile.h"
#include "image/ScratchPool.h"

namespace qm {

// Pixels of a node over a rect: either a view into pixels the pass keeps, or scratch memory
// leased for as long as this object lives.
class TileView {
public:
    TileView(const ConstImageTile& tile, ScratchLease lease) : _tile(tile), _lease(std::move(lease)) {}
    const ConstImageTile& tile() const { return _tile; }
    const ConstImageTile* operator->() const { return &_tile; }

private:
    ConstImageTile _tile;
    ScratchLease _lease;
};

// One render of one graph over one region. On construction it works out what every node must
// give (the union of its regions of interest), loads the sources (in parallel), runs the nodes'
// preparations and renders shared inputs, inputs before the nodes that use them. Afterwards any thread may pull tiles.
class RenderPass {
public:
    RenderPass(const ImageNode& root, const PixelRect& region, int threadCount);
    RenderPass(const RenderPass&) = delete;
    RenderPass& operator=(const RenderPass&) = delete;

    // Fills every pixel of `out` with `node`: transparent outside its pixel bounds.
    void renderInto(const ImageNode& node, const ImageTile& out);
    // `node` over exactly `rect` (transparent outside its pixel bounds).
    TileView view(const ImageNode& node, const PixelRect& rect);
    // The result of the node's prepare(), nothing if it had none.
    const PreparedData* prepared(const ImageNode& node) const;
    // Runs body(0 .. count-1) over the pass's threads; returns when all have run.
    void parallelFor(size_t count, const std::function<void(size_t)>& body) const;
    // Cuts `region` into tiles of `tileSize` (from the top left corner; the last row and column may
    // be smaller) and renders `node` into each, in parallel, handing each finished tile to
    // `consume` on the thread that rendered it.
    void renderTiles(const ImageNode& node, const PixelRect& region, int tileSize,
                     const std::function<void(const ConstImageTile&)>& consume);

private:
    struct Entry {
        PixelRect needed;
        bool shared = false;
        std::unique_ptr<PreparedData> prepared;
        ScratchLease pixels;  // shared nodes: `needed` rendered once
        bool rendered = false;
    };

    void plan(const ImageNode& root, const PixelRect& region);
    // Runs the loads of the sources the region needs, in parallel.
    void loadAll();
    void prepareAll();

    int _threadCount;
    std::vector<const ImageNode*> _order;  // every node, users before their inputs
    std::unordered_map<const ImageNode*, Entry> _entries;
};

}  // namespace qm
