// Compiles the kernels for one instruction set. The including unit defines QUOREL_VARIANT, the variant's name.
#include "core/kernels/filters.h"
#include "core/kernels/kernel_table.h"
#include "core/kernels/mixing.h"

#define QUOREL_TEXT_OF(name) #name
#define QUOREL_TEXT(name) QUOREL_TEXT_OF(name)

namespace quorel::kernels {
namespace {

#include "core/kernels/elements.inl"
#include "core/kernels/filter_vectors.inl"
#include "core/kernels/vectors.inl"

#include "core/kernels/bank.inl"
#include "core/kernels/cascade.inl"
#include "core/kernels/mixing.inl"
#include "core/kernels/row_sums.inl"
#include "core/kernels/sparse.inl"
#include "core/kernels/transforms.inl"

} // namespace

namespace QUOREL_VARIANT {

extern const KernelTable table;
// clang-format off
const KernelTable table = {
    QUOREL_TEXT(QUOREL_VARIANT),
    add, sub, mul, mulComplex, addProductC, mulC, subC, subCRev, div,
    copy, move, zero, set, setComplex, flip, flipInPlace, conjFlip, realToComplex, real, magnitude,
    thresholdLess, thresholdGreater, sumComplex,
    row_sums::sumRows, row_sums::sumProductsPack,
    transforms::mulPack,
    filters::cascade, filters::cascadeBank, filters::sparse, mixPairs,
    transforms::valuesPerVector, transforms::complexInverse<8>, transforms::complexInverse<16>,
    transforms::realForward1024, transforms::realInverse1024,
};
// clang-format on

} // namespace QUOREL_VARIANT
} // namespace quorel::kernels
