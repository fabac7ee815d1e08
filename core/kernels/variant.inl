// Compiles the kernels for one instruction set. The including unit defines QUOREL_VARIANT, the variant's name.
#include "core/kernels/filters.h"
#include "core/kernels/kernel_table.h"
#include "core/kernels/mixing.h"

#define QUOREL_TEXT_OF(name) #name
#define QUOREL_TEXT(name) QUOREL_TEXT_OF(name)

namespace quorel::kernels {
namespace {

#include "core/kernels/elements.inl"
#include "core/kernels/filters.inl"
#include "core/kernels/mixing.inl"
#include "core/kernels/vectors.inl"

#include "core/kernels/row_sums.inl"
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
    sumRows, sumProductsPack,
    mulPack,
    filters::cascade, filters::sparse, mixPairs,
    valuesPerVector, complexInverse<8>, complexInverse<16>, realForward1024, realInverse1024,
};
// clang-format on

} // namespace QUOREL_VARIANT
} // namespace quorel::kernels
