// SPDX-License-Identifier: MIT
#include <quorel/quorel.h>

#include <stdio.h>

static float in[480 * 8];
static float out[480 * 8]; // frames of eight slots: left, right and six zeros

int main(void)
{
    quorel_effect* effect = NULL;
    char why[QUOREL_TEXT];
    if (quorel_create_speaker(8, 0x63F, 480, 48000, &effect, why) != QUOREL_OK) {
        fprintf(stderr, "%s\n", why);
        return 1;
    }
    if (quorel_set(effect, "Settings", 1) != QUOREL_OK || quorel_set(effect, "Reverb", 120) != QUOREL_OK) {
        fprintf(stderr, "%s\n", quorel_error(effect));
        return 1;
    }
    in[0] = 0.5F; // a click on the front left speaker
    if (quorel_process(effect, in, out, 480) != QUOREL_OK) {
        fprintf(stderr, "%s\n", quorel_error(effect));
        return 1;
    }
    for (size_t frame = 0; frame < 20; ++frame)
        printf("%+.4f  %+.4f\n", (double)out[frame * 8], (double)out[frame * 8 + 1]);
    quorel_destroy(effect);
    return 0;
}
