// SPDX-License-Identifier: MIT
// Media types that stand in for the platform's.
#include "host/media_type.h"

#include "tests/host/engine.h"

#include <cstring>
#include <limits>

namespace quorel {
namespace {

IAudioMediaType* make(const UNCOMPRESSEDAUDIOFORMAT& format)
{
    IAudioMediaType* made = nullptr;
    EXPECT_EQ(CreateAudioMediaTypeFromUncompressedAudioFormat(&format, &made), S_OK);
    return made;
}

// The wave format of a media type made from `format`, with zeros behind a plain one.
WAVEFORMATEXTENSIBLE waveOf(const UNCOMPRESSEDAUDIOFORMAT& format)
{
    auto* made = make(format);
    WAVEFORMATEXTENSIBLE wave{};
    const WAVEFORMATEX* given = made->GetAudioFormat();
    std::memcpy(&wave, given, sizeof(WAVEFORMATEX) + given->cbSize);
    EXPECT_EQ(made->Release(), 0U);
    return wave;
}

TEST(MediaType, AMonoFloatFormatIsPlain)
{
    const auto wave = waveOf(voiceFormat());
    EXPECT_EQ(wave.Format.wFormatTag, WAVE_FORMAT_IEEE_FLOAT);
    EXPECT_EQ(wave.Format.nChannels, 1);
    EXPECT_EQ(wave.Format.nSamplesPerSec, 48000U);
    EXPECT_EQ(wave.Format.nAvgBytesPerSec, 192000U);
    EXPECT_EQ(wave.Format.nBlockAlign, 4);
    EXPECT_EQ(wave.Format.wBitsPerSample, 32);
    EXPECT_EQ(wave.Format.cbSize, 0);
}

TEST(MediaType, AStereoIntegerFormatIsPlain)
{
    const auto wave = waveOf({KSDATAFORMAT_SUBTYPE_PCM, 2, 2, 16, 44100.0F, 0});
    EXPECT_EQ(wave.Format.wFormatTag, WAVE_FORMAT_PCM);
    EXPECT_EQ(wave.Format.nBlockAlign, 4);
    EXPECT_EQ(wave.Format.nAvgBytesPerSec, 176400U);
    EXPECT_EQ(wave.Format.wBitsPerSample, 16);
    EXPECT_EQ(wave.Format.cbSize, 0);
}

TEST(MediaType, AMaskMakesAFormatExtensible)
{
    const auto wave = waveOf(floatFormat(1, 48000.0F, 4));
    EXPECT_EQ(wave.Format.wFormatTag, WAVE_FORMAT_EXTENSIBLE);
    EXPECT_EQ(wave.Format.cbSize, 22);
    EXPECT_EQ(wave.Format.wBitsPerSample, 32);
    EXPECT_EQ(wave.Samples.wValidBitsPerSample, 32);
    EXPECT_EQ(wave.dwChannelMask, 4U);
    const GUID type = wave.SubFormat;
    EXPECT_TRUE(type == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT);
}

TEST(MediaType, ThreeChannelsMakeAFormatExtensible)
{
    const auto wave = waveOf(floatFormat(3, 48000.0F, 0));
    EXPECT_EQ(wave.Format.wFormatTag, WAVE_FORMAT_EXTENSIBLE);
    EXPECT_EQ(wave.Format.nChannels, 3);
    EXPECT_EQ(wave.Format.nBlockAlign, 12);
}

TEST(MediaType, FewerValidBitsThanTheContainersMakeAFormatExtensible)
{
    const auto wave = waveOf({KSDATAFORMAT_SUBTYPE_PCM, 1, 4, 24, 48000.0F, 0});
    EXPECT_EQ(wave.Format.wFormatTag, WAVE_FORMAT_EXTENSIBLE);
    EXPECT_EQ(wave.Format.wBitsPerSample, 32);
    EXPECT_EQ(wave.Samples.wValidBitsPerSample, 24);
}

TEST(MediaType, AnotherFormatTypeMakesAFormatExtensible)
{
    auto format = voiceFormat();
    format.guidFormatType.Data1 = 6;
    const auto wave = waveOf(format);
    EXPECT_EQ(wave.Format.wFormatTag, WAVE_FORMAT_EXTENSIBLE);
    const GUID type = wave.SubFormat;
    EXPECT_TRUE(type == format.guidFormatType);
}

TEST(MediaType, TheRatesFractionIsDropped)
{
    EXPECT_EQ(waveOf(voiceFormat(48000.75F)).Format.nSamplesPerSec, 48000U);
}

TEST(MediaType, ARateThatIsNoNumberGivesNone)
{
    EXPECT_EQ(waveOf(voiceFormat(std::numeric_limits<float>::quiet_NaN())).Format.nSamplesPerSec, 0U);
}

TEST(MediaType, BothFormsGiveTheirUncompressedFormatBack)
{
    const UNCOMPRESSEDAUDIOFORMAT padded = {KSDATAFORMAT_SUBTYPE_PCM, 2, 4, 24, 96000.0F, 3};
    for (const auto& format : {voiceFormat(), surroundFormat(), padded}) {
        auto* made = make(format);
        UNCOMPRESSEDAUDIOFORMAT given{};
        EXPECT_EQ(made->GetUncompressedAudioFormat(&given), S_OK);
        EXPECT_EQ(std::memcmp(&given, &format, sizeof given), 0); // 36 bytes without padding
        BOOL compressed = TRUE;
        EXPECT_EQ(made->IsCompressedFormat(&compressed), S_OK);
        EXPECT_EQ(compressed, FALSE);
        EXPECT_EQ(made->Release(), 0U);
    }
}

TEST(MediaType, ACompressedFormatHasNoUncompressedOne)
{
    WAVEFORMATEX wave{};
    wave.wFormatTag = 0x55;
    wave.nChannels = 2;
    IAudioMediaType* made = nullptr;
    ASSERT_EQ(CreateAudioMediaType(&wave, sizeof wave, &made), S_OK);
    BOOL compressed = FALSE;
    EXPECT_EQ(made->IsCompressedFormat(&compressed), S_OK);
    EXPECT_EQ(compressed, TRUE);
    UNCOMPRESSEDAUDIOFORMAT given{};
    EXPECT_EQ(made->GetUncompressedAudioFormat(&given), E_FAIL);
    EXPECT_EQ(made->Release(), 0U);
}

TEST(MediaType, AFormatWithoutChannelsHasEmptyContainers)
{
    WAVEFORMATEX wave{};
    wave.wFormatTag = WAVE_FORMAT_PCM;
    wave.nBlockAlign = 4;
    IAudioMediaType* made = nullptr;
    ASSERT_EQ(CreateAudioMediaType(&wave, sizeof wave, &made), S_OK);
    UNCOMPRESSEDAUDIOFORMAT given{};
    EXPECT_EQ(made->GetUncompressedAudioFormat(&given), S_OK);
    EXPECT_EQ(given.dwBytesPerSampleContainer, 0U);
    EXPECT_EQ(made->Release(), 0U);
}

TEST(MediaType, AWaveFormatMustHaveTheSizeItNames)
{
    WAVEFORMATEX wave{};
    wave.wFormatTag = WAVE_FORMAT_PCM;
    IAudioMediaType* made = nullptr;
    EXPECT_EQ(CreateAudioMediaType(&wave, 17, &made), E_INVALIDARG);
    EXPECT_EQ(CreateAudioMediaType(&wave, 19, &made), E_INVALIDARG);
    wave.cbSize = 23; // more than the extensible form has
    EXPECT_EQ(CreateAudioMediaType(&wave, 18 + 23, &made), E_INVALIDARG);
    EXPECT_EQ(made, nullptr);
}

TEST(MediaType, NullArgumentsAreRefused)
{
    const auto format = voiceFormat();
    const WAVEFORMATEX wave{};
    IAudioMediaType* made = nullptr;
    EXPECT_EQ(CreateAudioMediaType(nullptr, 18, &made), E_POINTER);
    EXPECT_EQ(CreateAudioMediaType(&wave, 18, nullptr), E_POINTER);
    EXPECT_EQ(CreateAudioMediaTypeFromUncompressedAudioFormat(nullptr, &made), E_POINTER);
    EXPECT_EQ(CreateAudioMediaTypeFromUncompressedAudioFormat(&format, nullptr), E_POINTER);

    made = make(format);
    DWORD flags = 0;
    EXPECT_EQ(made->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(made->IsCompressedFormat(nullptr), E_POINTER);
    EXPECT_EQ(made->IsEqual(nullptr, &flags), E_POINTER);
    EXPECT_EQ(made->IsEqual(made, nullptr), E_POINTER);
    EXPECT_EQ(made->GetUncompressedAudioFormat(nullptr), E_POINTER);
    EXPECT_EQ(made->Release(), 0U);
}

TEST(MediaType, EqualityIsToldInParts)
{
    auto* mono = make(voiceFormat());
    const auto compare = [mono](const UNCOMPRESSEDAUDIOFORMAT& format, HRESULT result) {
        auto* other = make(format);
        DWORD flags = 99;
        EXPECT_EQ(mono->IsEqual(other, &flags), result);
        other->Release();
        return flags;
    };
    EXPECT_EQ(compare(voiceFormat(), S_OK), 2U | 4U | 8U);
    EXPECT_EQ(compare(voiceFormat(96000.0F), S_FALSE), 2U | 8U);
    EXPECT_EQ(compare(floatFormat(1, 48000.0F, 4), S_FALSE), 2U); // the same type in the extensible form
    auto integer = voiceFormat();
    integer.guidFormatType = KSDATAFORMAT_SUBTYPE_PCM;
    EXPECT_EQ(compare(integer, S_FALSE), 8U);

    // Extensible formats whose masks alone differ: those stand behind the plain format.
    auto* surround = make(floatFormat(8, 48000.0F, 0x63F));
    auto* same = make(floatFormat(8, 48000.0F, 0x63F));
    auto* wide = make(floatFormat(8, 48000.0F, 0xFF));
    DWORD parts = 99;
    EXPECT_EQ(surround->IsEqual(same, &parts), S_OK);
    EXPECT_EQ(parts, 2U | 4U | 8U);
    EXPECT_EQ(surround->IsEqual(wide, &parts), S_FALSE);
    EXPECT_EQ(parts, 2U | 4U);
    for (auto* type : {surround, same, wide})
        EXPECT_EQ(type->Release(), 0U);

    Format formless(voiceFormat());
    DWORD flags = 0;
    EXPECT_EQ(mono->IsEqual(&formless, &flags), E_INVALIDARG);
    EXPECT_EQ(mono->Release(), 0U);
}

TEST(MediaType, ItOffersItselfAndIUnknownAlone)
{
    auto* made = make(voiceFormat());
    for (const IID& id : {IID_IUnknown, IID_IAudioMediaType}) {
        void* found = nullptr;
        EXPECT_EQ(made->QueryInterface(id, &found), S_OK);
        EXPECT_EQ(found, made);
        EXPECT_EQ(made->Release(), 1U);
    }
    void* found = made;
    EXPECT_EQ(made->QueryInterface(IID_IPropertyStore, &found), E_NOINTERFACE);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(made->AddRef(), 2U);
    EXPECT_EQ(made->Release(), 1U);
    EXPECT_EQ(made->Release(), 0U);
}

TEST(MediaType, ItKeepsTheModuleLoadedUntilItsLastReference)
{
    const auto before = moduleUses.load();
    auto* made = make(voiceFormat());
    EXPECT_EQ(moduleUses, before + 1);
    made->AddRef();
    made->Release();
    EXPECT_EQ(moduleUses, before + 1);
    made->Release();
    EXPECT_EQ(moduleUses, before);
}

} // namespace
} // namespace quorel
