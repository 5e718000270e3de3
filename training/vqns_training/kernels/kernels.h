// The fast operators behind training on a processor, called from Python (operators.py) by address.
//
// Maps are dense arrays [frame, sequence of the batch, band, channel], channels fastest. A "row" is one band
// of one frame of one sequence. Results are overwritten, not added to, unless a comment says otherwise.
#ifndef VQNS_TRAINING_KERNELS_H
#define VQNS_TRAINING_KERNELS_H

#include <cblas.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

// C = alpha A B + beta C, row-major, with explicit strides between rows.
inline void multiply(CBLAS_TRANSPOSE ta, CBLAS_TRANSPOSE tb, long m, long n, long k, float alpha,
                     const float* a, long lda, const float* b, long ldb, float beta, float* c, long ldc) {
    if (m <= 0 || n <= 0 || k <= 0) return;
    cblas_sgemm(CblasRowMajor, ta, tb, static_cast<int>(m), static_cast<int>(n), static_cast<int>(k), alpha,
                a, static_cast<int>(lda), b, static_cast<int>(ldb), beta, c, static_cast<int>(ldc));
}

// Products of up to this many multiply-adds take the BLAS's path without repacking, the faster one where it
// has one; it wants both factors untransposed. Blocks are cut to it.
constexpr long kSmallProduct = 1000000;

// Rows x columns to columns x rows.
inline std::vector<float> transposed(const float* a, long rows, long columns) {
    std::vector<float> t(static_cast<size_t>(rows * columns));
    for (long i = 0; i < rows; ++i) {
        for (long j = 0; j < columns; ++j) t[static_cast<size_t>(j * rows + i)] = a[i * columns + j];
    }
    return t;
}

// One accumulator a thread for gradients that every row contributes to, added up at the end.
class ThreadSums {
  public:
    explicit ThreadSums(long size)
        : size_(size), values_(static_cast<size_t>(size * omp_get_max_threads())) {}
    float* mine() {
        return &values_[static_cast<size_t>(size_ * omp_get_thread_num())];
    }
    // Moves the totals of `count` values from `offset` on to `out`.
    void collect(long offset, long count, float* out) const {
        for (long i = 0; i < count; ++i) {
            float sum = 0;
            for (size_t at = static_cast<size_t>(offset + i); at < values_.size();
                 at += static_cast<size_t>(size_)) {
                sum += values_[at];
            }
            out[i] = sum;
        }
    }

  private:
    long size_;
    std::vector<float> values_;
};

#endif
