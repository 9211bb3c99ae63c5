#pragma once

// Splitting a row of pixels into runs of one kind.
namespace qm::kernels {

// Splits [0, width) into the longest runs of equal kind(i) and calls each(start, end, kind) for
// them in order.
template <class Kind, class Each>
void forEachRun(int width, Kind&& kind, Each&& each) {
    for (int start = 0; start < width;) {
        const int runKind = kind(start);
        int end = start + 1;
        while (end < width && kind(end) == runKind) ++end;
        each(start, end, runKind);
        start = end;
    }
}

// forEachRun for a kind that never goes back to an earlier value along the row (a threshold on a
// quantity that grows or falls steadily with x): each run's end is found by bisection.
template <class Kind, class Each>
void forEachOrderedRun(int width, Kind&& kind, Each&& each) {
    for (int start = 0; start < width;) {
        const int runKind = kind(start);
        int low = start + 1;
        int high = width;
        if (kind(width - 1) != runKind) {
            // The run ends at the first index in [low, high] whose kind differs.
            while (low < high) {
                const int middle = low + (high - low) / 2;
                if (kind(middle) == runKind)
                    low = middle + 1;
                else
                    high = middle;
            }
        }
        each(start, high, runKind);
        start = high;
    }
}

}  // namespace qm::kernels
