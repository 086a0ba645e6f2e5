// Test seam: refuse parcel writes on the calling thread.
//
// After FailWritesAfter(n), the next n writes on this thread succeed and
// every later one returns false without writing anything, until
// ResetWriteFailures() (or the ScopedWriteFailure's end).
//
// What counts as one write: one outermost call of a public write operation
// of Parcel or MessageParcel. The interface token is one write; so is a
// strong parcelable together with all its record's fields, and a whole
// string vector. A record's Marshalling called directly makes one write per
// field, since each field write is then outermost.
//
// The budget is thread-local, so a test's budget never leaks into another
// thread (an IPC thread, say).
#ifndef TAVIK_PLATFORM_PARCEL_TEST_SEAM_H
#define TAVIK_PLATFORM_PARCEL_TEST_SEAM_H

namespace Tavik {
namespace ParcelTestSeam {

void FailWritesAfter(int allowedWrites);
void ResetWriteFailures();
// Writes still allowed on this thread, or -1 when unlimited.
int RemainingWrites();

class ScopedWriteFailure {
public:
    explicit ScopedWriteFailure(int allowedWrites) { FailWritesAfter(allowedWrites); }
    ~ScopedWriteFailure() { ResetWriteFailures(); }
    ScopedWriteFailure(const ScopedWriteFailure&) = delete;
    ScopedWriteFailure& operator=(const ScopedWriteFailure&) = delete;
};

}  // namespace ParcelTestSeam
}  // namespace Tavik

#endif  // TAVIK_PLATFORM_PARCEL_TEST_SEAM_H
