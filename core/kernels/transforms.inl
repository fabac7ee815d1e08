// The transforms' arithmetic and the packed product. Included once by each variant's unit, as elements.inl is.

void mulPack(const float* a, const float* b, float* dst, size_t n)
{
    const float last = a[n - 1] * b[n - 1];
    dst[0] = a[0] * b[0];
    for (size_t i = 1; i + 1 < n; i += 2) {
        const float re = a[i] * b[i] - a[i + 1] * b[i + 1];
        const float im = a[i] * b[i + 1] + a[i + 1] * b[i];
        dst[i] = re;
        dst[i + 1] = im;
    }
    if (n % 2 == 0)
        dst[n - 1] = last;
}
