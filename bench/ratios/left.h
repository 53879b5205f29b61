// Memory that stays with the library after many handles came and went.
#ifndef QKMEM_BENCH_RATIOS_LEFT_H_
#define QKMEM_BENCH_RATIOS_LEFT_H_

namespace ratios {

/**
 * Creates 100,000 handles and deletes them, while a second thread exists. Returns the megabytes
 * that are then allocated and were not before. To be called once per process.
 */
double megabytes_left_by_handles();

}  // namespace ratios

#endif  // QKMEM_BENCH_RATIOS_LEFT_H_
