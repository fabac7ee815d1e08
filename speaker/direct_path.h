// SPDX-License-Identifier: MIT
// DirectPath folds N channels to two ears in the frequency domain, one pair of head-related responses for each channel:
//
//   sum[ear] = sum over c of response[ear][c] * spectra[c]        bin by bin, in rising order of c
//
// Spectra are 1024 floats in Pack form (core/kernels/transforms.h). The transforms around this stage, and the history that makes
// the circular convolution a linear one, belong to the path. Responses are held transformed, so none is during playback; a new
// set replaces them at once.
#pragma once

#include "core/buffer.h"
#include "core/settings_record.h"
#include "speaker/transform_length.h"

#include <array>

namespace quorel {

template <std::size_t N, typename T>
class DirectPath;

template <std::size_t N>
class DirectPath<N, float> {
public:
    // Tables of N consecutive spectra, copied.
    DirectPath(const float* leftTable, const float* rightTable);

    // `spectra` holds the channels' spectra, `sum` gets the ears': left, then right.
    void process(const Buffer<float, N>& spectra, Buffer<float, 2>& sum);

    // Takes over the set that the record points to: N left spectra, then N right ones. Refuses, and changes nothing, unless it
    // is for N channels and of `transformLength` floats a response. A null pointer shows in the first copy's status.
    void set(const SettingsRecord& record);

private:
    void copy(const float* tables, Buffer<float, N>& responses);

    Buffer<float, N> left;  // spectra of the responses at the left ear
    Buffer<float, N> right; // and at the right ear
};

// ---------------------------------------------------------------------------------------------------------------------

namespace detail {

// A failure text of DirectPath<N,float>::set, made from that of eight channels: the digit is the instantiation's.
template <std::size_t N, std::size_t Length>
consteval std::array<char, Length> directPathText(const char (&ofEight)[Length])
{
    auto text = std::to_array(ofEight);
    text[19] = static_cast<char>('0' + N);
    return text;
}

} // namespace detail

template <std::size_t N>
DirectPath<N, float>::DirectPath(const float* leftTable, const float* rightTable) : left(transformLength), right(transformLength)
{
    static constexpr auto sizeText = detail::directPathText<N>("quorel::DirectPath<8,float>::set: HRTF size must match");
    if (left.capacity() != transformLength || right.capacity() != transformLength) // Required: cannot happen
        throw std::invalid_argument(sizeText.data());
    copy(leftTable, left);
    copy(rightTable, right);
}

template <std::size_t N>
void DirectPath<N, float>::process(const Buffer<float, N>& spectra, Buffer<float, 2>& sum)
{
    check(sumProductsPack(rows(spectra).data(), rows(left).data(), rows(right).data(), N, sum.channel(0), sum.channel(1),
                          length32(transformLength)));
    sum.setSize(transformLength);
}

template <std::size_t N>
void DirectPath<N, float>::set(const SettingsRecord& record)
{
    static constexpr auto channelsText = detail::directPathText<N>("quorel::DirectPath<8,float>::set: channels must match");
    static constexpr auto sizeText = detail::directPathText<N>("quorel::DirectPath<8,float>::set: size must match");
    if (record.hrtfChannels != N)
        throw std::invalid_argument(channelsText.data());
    if (record.hrtfLength != left.size() || record.hrtfLength != right.size())
        throw std::invalid_argument(sizeText.data());
    copy(record.hrtfData, left);
    copy(record.hrtfData + N * transformLength, right);
}

template <std::size_t N>
void DirectPath<N, float>::copy(const float* tables, Buffer<float, N>& responses)
{
    for (std::size_t c = 0; c < N; ++c)
        check(ippsCopy_32f(tables + c * transformLength, responses.channel(c), length32(transformLength)));
    responses.setSize(transformLength);
}

} // namespace quorel
