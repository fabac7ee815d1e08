// SPDX-License-Identifier: MIT
// The effects for programs in C, and in every language that can call C.
//
//     quorel_effect* effect = NULL;
//     char why[QUOREL_TEXT];
//     if (quorel_create_speaker(8, 0x63F, 480, 48000, &effect, why) != QUOREL_OK)
//         puts(why);
//     quorel_set(effect, "Settings", 1);
//     quorel_process(effect, in, out, 480);
//     quorel_destroy(effect);
//
// An effect belongs to one thread at a time, different effects share nothing. Creating and destroying may wait and allocate;
// quorel_process, quorel_set, quorel_get and quorel_levels neither wait nor allocate as long as they succeed. No exception of C++
// leaves any of these functions. What they return stays readable as long as the library is loaded, except where it says otherwise.
#ifndef QUOREL_H
#define QUOREL_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define QUOREL_API __attribute__((visibility("default")))
#else
#define QUOREL_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef enum quorel_status {
    QUOREL_OK = 0,
    QUOREL_BAD_ARGUMENT = 1, // a null pointer, more frames than announced, or a value out of its range
    QUOREL_UNKNOWN_NAME = 2, // no setting has this name
    QUOREL_REFUSED = 3,      // the effect does not take this stream or this block
    QUOREL_NO_LEVELS = 4,    // a speaker effect measures none
    QUOREL_NO_MEMORY = 5
} quorel_status;

enum {
    QUOREL_TEXT = 256, // characters of an error's text, its end included
    QUOREL_LEVELS = 9
};

typedef struct quorel_effect quorel_effect;

typedef struct quorel_setting {
    const char* name;
    const char* meaning; // may have several lines
    int32_t low;         // the range, both ends included
    int32_t high;
} quorel_setting;

// "0.2.0"
QUOREL_API const char* quorel_version(void);

// What a status means, in a few words. For any number.
QUOREL_API const char* quorel_status_text(quorel_status status);

// The render effect: `channels` (1 to 8) interleaved samples a frame, ordered by the bits of `channel_mask`; blocks of up to
// `max_frames` frames; `rate` frames per second. At any rate but 48000 it copies.
// On failure *effect is null, and `why`, if it is not null, has the reason (room for QUOREL_TEXT characters).
QUOREL_API quorel_status quorel_create_speaker(uint32_t channels, uint32_t channel_mask, uint32_t max_frames, uint32_t rate,
                                               quorel_effect** effect, char* why);

// The capture effect, at 16000 or 48000 frames per second. Noise reduction and levels need blocks of whole 5 ms.
QUOREL_API quorel_status quorel_create_microphone(uint32_t channels, uint32_t max_frames, uint32_t rate, quorel_effect** effect,
                                                  char* why);

// Samples in a frame of the output: 8 of a speaker effect at 48000 frames per second (left, right, six zeros), else as many as
// in the input. 0 for null.
QUOREL_API uint32_t quorel_output_channels(const quorel_effect* effect);

// One block. `in` and `out` may be one array with room for the wider of the two; otherwise they don't overlap. A block that
// fails is lost, its output is not to be used, and the next one runs normally.
QUOREL_API quorel_status quorel_process(quorel_effect* effect, const float* in, float* out, uint32_t frames);

// A setting by its name; the effect takes it over at its next block, without a click. All are 0 at first.
QUOREL_API quorel_status quorel_set(quorel_effect* effect, const char* name, int32_t value);
QUOREL_API quorel_status quorel_get(const quorel_effect* effect, const char* name, int32_t* value);

// The settings that there are, by an index from 0; false (0) behind the last.
QUOREL_API int quorel_setting_at(size_t index, quorel_setting* setting);

// The levels of the last block's end in dB, if the setting levelsEnabled is above 0.
QUOREL_API quorel_status quorel_levels(quorel_effect* effect, float levels[QUOREL_LEVELS]);

// What the last call of this effect that failed had to say; empty if none did. Good until the next call with it.
QUOREL_API const char* quorel_error(const quorel_effect* effect);

// Null is accepted.
QUOREL_API void quorel_destroy(quorel_effect* effect);

#ifdef __cplusplus
}
#endif

#endif
