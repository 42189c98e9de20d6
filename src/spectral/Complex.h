// A complex number of two 32-bit floats, the element of FFT records.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

class CComplex {
public:
    CComplex() = default;
    CComplex(float re, float im) : m_re(re), m_im(im) {}

    float Re() const { return m_re; }
    float Im() const { return m_im; }
    void SetRe(float re) { m_re = re; }
    void SetIm(float im) { m_im = im; }

    // Squared magnitude.
    float Power() const { return m_re * m_re + m_im * m_im; }

    CComplex& operator+=(const CComplex& o) {
        m_re += o.m_re;
        m_im += o.m_im;
        return *this;
    }
    CComplex& operator/=(float d) {
        m_re /= d;
        m_im /= d;
        return *this;
    }
    bool operator==(const CComplex& o) const { return m_re == o.m_re && m_im == o.m_im; }
    bool operator!=(const CComplex& o) const { return !(*this == o); }

private:
    float m_re = 0.0f;
    float m_im = 0.0f;
};
#pragma GCC visibility pop
