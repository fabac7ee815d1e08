// SPDX-License-Identifier: MIT
#include "bench/yardstick.h"

#include <fftw3.h>

#include <cmath>

namespace quorel::bench {

struct Yardstick::Plan {
    fftwf_plan best = nullptr;
    float* in;
    float* out;
};

Yardstick::Yardstick(Kind kind, int length) : plan(std::make_unique<Plan>())
{
    const auto floats = 2 * static_cast<std::size_t>(length) + 2;
    plan->in = fftwf_alloc_real(floats);
    plan->out = fftwf_alloc_real(floats);
    double least = std::numeric_limits<double>::infinity();
    for (int i = 0; i < 9; ++i) {
        fftwf_forget_wisdom(); // or the planner would only repeat its first choice
        fftwf_plan candidate =
            kind == Kind::realForward
                ? fftwf_plan_dft_r2c_1d(length, plan->in, reinterpret_cast<fftwf_complex*>(plan->out), FFTW_PATIENT)
                : fftwf_plan_dft_1d(length, reinterpret_cast<fftwf_complex*>(plan->in),
                                    reinterpret_cast<fftwf_complex*>(plan->out), FFTW_BACKWARD, FFTW_PATIENT);
        for (std::size_t k = 0; k < floats; ++k)
            plan->in[k] = std::sin(static_cast<float>(k * k % 1013));
        double time = std::numeric_limits<double>::infinity();
        for (int repetition = 0; repetition < 500; ++repetition)
            time = std::min(time, burst([&] { fftwf_execute(candidate); }));
        if (time < least) {
            least = time;
            std::swap(plan->best, candidate);
        }
        if (candidate != nullptr)
            fftwf_destroy_plan(candidate);
    }
}

Yardstick::~Yardstick()
{
    fftwf_destroy_plan(plan->best);
    fftwf_free(plan->in);
    fftwf_free(plan->out);
}

void Yardstick::run() const noexcept
{
    fftwf_execute(plan->best);
}

const Yardstick& yardstick()
{
    static const Yardstick y(Yardstick::Kind::realForward, 1024);
    return y;
}

} // namespace quorel::bench
