// Fresnel terms from tables: how much light a surface reflects at an angle, for rays from outside and from inside.
//
// A table is made once for an index of refraction, so that shading costs a look-up instead of a formula.
#pragma once

// Base: the tables and the look-up. Derived classes differ in the formula that fills them.
class GenericFresnelTermBuffer {
public:
    float bindex[2] = {};              // relative index for a ray that enters, and its reciprocal for one that leaves
    float totalReflectAngle[2] = {};   // unused
    float bindex_sik = 0.0f;           // unused
    float fresnelTable[2][1024] = {};  // outside, inside

    // Rebuilds the table unless the index is the one that it was made for.
    virtual void setBIndex(float index);
    // Fills the tables: entry i for a cosine of i / 1024. Not while a frame is rendered.
    virtual void rebuildFresnelTable() = 0;
    virtual ~GenericFresnelTermBuffer() = default;

    // theta: the cosine (in spite of its name) between the ray and the normal, taken within 0 to 1, NaN being 0.
    // inside: 0 or 1. The entry is that of the cosine's 1023rd parts, truncated.
    float fresnelTerm(float theta, int inside) const {
        const float cosine = theta > 0.0f ? (theta < 1.0f ? theta : 1.0f) : 0.0f;
        return fresnelTable[inside][static_cast<int>(cosine * 1023.0f)];
    }

protected:
    void storeIndex(float index);
};

// Exact, for unpolarised light at the boundary of a dielectric; 1 where all light is reflected. In the form of R. Cook
// and K. Torrance, "A reflectance model for computer graphics" (1982).
class FesnelTermBufferTyp1 : public GenericFresnelTermBuffer {
public:
    explicit FesnelTermBufferTyp1(float index);
    void rebuildFresnelTable() override;

private:
    static float fresnelC(float theta);
    float fresnelG(float c, int inside) const;
};

// C. Schlick, "An inexpensive BRDF model for physically-based rendering" (1994).
class FesnelTermBufferTyp2 : public GenericFresnelTermBuffer {
public:
    explicit FesnelTermBufferTyp2(float index);
    void rebuildFresnelTable() override;

private:
    float F0(int inside) const;
    float fresnelTermApprox(float c, int inside) const;
};

// Empirical: (1 - cosine^index) * scale + bias, the same on both sides.
class FesnelTermBufferTyp3 : public GenericFresnelTermBuffer {
public:
    float bias;
    float scale;
    float index;

    FesnelTermBufferTyp3(float bindex, float bias, float scale, float index);
    // With a bias of 0, a scale of 1 and a power of 4.
    void setBIndex(float index) override;
    void rebuildFresnelTable() override;
    // Rebuilds the table unless all four are those that it was made for.
    virtual void setApproxBIndex(float bindex, float bias, float scale, float index);
};
