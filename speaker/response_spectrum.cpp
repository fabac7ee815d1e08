// SPDX-License-Identifier: MIT
#include "speaker/response_spectrum.h"

#include "core/fft.h"
#include "speaker/transform_length.h"

namespace quorel {

void appendSpectrum(std::vector<float>& spectra, std::span<const float> taps, std::size_t onset)
{
    FFT<float> fft(transformOrder);
    std::vector<float> response(fft.length());
    std::copy(taps.begin(), taps.end(), response.begin() + static_cast<std::ptrdiff_t>(onset));
    spectra.resize(spectra.size() + fft.length());
    fft.Fwd(response.data(), spectra.data() + spectra.size() - fft.length());
}

} // namespace quorel
