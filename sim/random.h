// Reproducible pseudo-random numbers, the same on every host.
#ifndef VXSIM_RANDOM_H
#define VXSIM_RANDOM_H

#include <cmath>
#include <cstdint>

// One well-mixed number from another.
constexpr uint64_t MixBits(uint64_t value)
{
    value += 0x9E3779B97F4A7C15ull;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ull;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBull;
    return value ^ (value >> 31);
}

constexpr uint64_t MixBits(uint64_t first, uint64_t second)
{
    return MixBits(MixBits(first) ^ second);
}

// A stream of numbers from a seed.
class tcSimRandom
{
public:
    explicit tcSimRandom(uint64_t seed) : mnState(seed) {}

    uint64_t Bits() { return MixBits(mnState++ * 0xD1342543DE82EF95ull); }

    // At least 0, below 1.
    double Uniform() { return static_cast<double>(Bits() >> 11) * 0x1p-53; }

    double Uniform(double from, double to) { return from + (to - from) * Uniform(); }

    // Normal deviate of mean 0 and deviation 1.
    double Normal()
    {
        double radius = std::sqrt(-2.0 * std::log(1.0 - Uniform()));
        return radius * std::cos(6.283185307179586 * Uniform());
    }

private:
    uint64_t mnState;
};

#endif
