// SPDX-License-Identifier: MIT
// Formats that an engine may ask about: as wave formats and as uncompressed ones, judged by the rules of both effects.
#include "host/format_rules.h"
#include "host/media_type.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/failing_memory.h"

#include <memory>
#include <vector>

namespace {

using namespace quorel;

struct Release {
    void operator()(IAudioMediaType* type) const { type->Release(); }
};
using MediaType = std::unique_ptr<IAudioMediaType, Release>;

// What is refused of it, whatever it says.
void examineRefusals(IAudioMediaType& type, const GUID& other)
{
    DWORD flags = 0;
    void* object = &type;
    require(type.QueryInterface(IID_IAudioMediaType, nullptr) == E_POINTER && type.IsCompressedFormat(nullptr) == E_POINTER &&
                type.IsEqual(nullptr, &flags) == E_POINTER && type.IsEqual(&type, nullptr) == E_POINTER &&
                type.GetUncompressedAudioFormat(nullptr) == E_POINTER,
            "without a place for it there is no answer");
    const bool known = other == IID_IUnknown || other == IID_IAudioMediaType;
    require(type.QueryInterface(other, &object) == (known ? S_OK : E_NOINTERFACE) && known == (object != nullptr),
            "it has two interfaces");
    if (known)
        type.Release();
    require(type.QueryInterface(IID_IAudioMediaType, &object) == S_OK && object == &type, "and is one of them");
    require(type.Release() == 1, "each reference is counted");

    IAudioMediaType* made = &type;
    failAllocation(1, true, Counted::own);
    const auto result = CreateAudioMediaType(type.GetAudioFormat(), sizeof(WAVEFORMATEX) + type.GetAudioFormat()->cbSize, &made);
    failAllocation(0, false, Counted::own);
    require(result == E_OUTOFMEMORY && made == nullptr, "without memory there is none");
}

// What one says of itself, and whether an effect takes it.
void examine(IAudioMediaType& type, const UNCOMPRESSEDAUDIOFORMAT& other)
{
    BOOL compressed = -1;
    require(type.IsCompressedFormat(&compressed) == S_OK && (compressed == TRUE || compressed == FALSE),
            "it is compressed or not");
    DWORD flags = 0;
    require(type.IsEqual(&type, &flags) == S_OK, "it equals itself");
    UNCOMPRESSEDAUDIOFORMAT told{};
    const HRESULT result = type.GetUncompressedAudioFormat(&told);
    require((result == S_OK) == (compressed == FALSE), "it has an uncompressed format where it is not compressed");
    if (result != S_OK)
        return;
    for (const auto kind : {EndpointKind::render, EndpointKind::capture})
        for (const auto& opposite : {told, other})
            require(!admits(kind, opposite, told) || told.dwBytesPerSampleContainer == 4, "samples of 32 bits alone are taken");

    IAudioMediaType* made = nullptr;
    require(CreateAudioMediaTypeFromUncompressedAudioFormat(&told, &made) == S_OK || made == nullptr, "a failure gives nothing");
    if (made == nullptr)
        return;
    const MediaType again(made);
    require(again->IsEqual(&type, &flags) == S_OK || again->IsEqual(&type, &flags) == S_FALSE, "two types are compared");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const auto uncompressed = input.number<UNCOMPRESSEDAUDIOFORMAT>();
    IAudioMediaType* made = nullptr;
    require(CreateAudioMediaTypeFromUncompressedAudioFormat(nullptr, &made) == E_POINTER &&
                CreateAudioMediaTypeFromUncompressedAudioFormat(&uncompressed, nullptr) == E_POINTER &&
                CreateAudioMediaType(nullptr, 0, &made) == E_POINTER,
            "without a format or a place for it there is no type");
    if (CreateAudioMediaTypeFromUncompressedAudioFormat(&uncompressed, &made) == S_OK) {
        const MediaType type(made);
        examine(*type, uncompressed);
        examineRefusals(*type, uncompressed.guidFormatType);
    }

    // As many bytes as are said to be there.
    const auto rest = input.all();
    if (rest.size() < sizeof(WAVEFORMATEX))
        return 0;
    std::vector<char> wave(rest.begin(), rest.end());
    made = nullptr;
    if (CreateAudioMediaType(reinterpret_cast<const WAVEFORMATEX*>(wave.data()), static_cast<UINT32>(wave.size()), &made) ==
        S_OK) {
        const MediaType type(made);
        examine(*type, uncompressed);
        examineRefusals(*type, uncompressed.guidFormatType);
    }
    return 0;
}
