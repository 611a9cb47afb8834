// A package as somebody else would write one: one surface that says nothing about itself, and one with a document.
#include "Oxbeam/OxExport.h"
#include "Oxbeam/OxFunctions.h"
#include "Oxbeam/OxShader.h"

extern "C" OXBEAM_API int strangerRegistrations;
int strangerRegistrations = 0;

class StrangerBare : public OxShader {
public:
    Oxint m_count;
    float m_gain;
    bool m_lit;
    R3 m_tint;
    Oxint m_picture;
    float m_blank;  // nothing but zero tells what it is

    void Init() override {
        m_count = 3;
        m_gain = 0.5f;
        m_lit = true;
        m_tint = R3(1.0f, 0.5f, 0.25f);
        m_picture = -1;
        m_blank = 0.0f;
    }
    void Register() override {
        ++strangerRegistrations;
        Init();
        oxsDeclareMember(this, "count", m_count);
        oxsDeclareMember(this, "gain", m_gain);
        oxsDeclareMember(this, "lit", m_lit);
        oxsDeclareMember(this, "tint", m_tint);
        oxsDeclareMember(this, "tone", m_tint);
        oxsDeclareMember(this, "picture", m_picture);
        oxsDeclareMember(this, "blank", m_blank);
    }
    Oxvoid Shade(OxState* state) override { oxsReturnColor(state, m_gain * m_tint); }
};

OX_EXPORT_OBJECT(StrangerBare, StrangerBare)

static const char PaintInfo[] =
    "<?xml version=\"1.0\" ?><ShaderInfo><type>surface</type><package>Stranger</package><id>StrangerPaint</id>"
    "<parameter><id>layers</id><type>int</type><lowerbound>0</lowerbound><upperbound>8</upperbound></parameter>"
    "<parameter><id>coat</id><alias>finish</alias><type>int</type><interpretation><enum> "
    "<item><key>0</key><value>matte</value></item><item><key>1</key><value>glossy</value></item>"
    "</enum></interpretation></parameter>"
    "<group><longname>Wear</longname><help></help>"
    "<parameter><id>wear</id><alias>age</alias><type>float</type></parameter></group>"
    "<parameter><id>cells</id><type>int</type><size>2</size></parameter>"
    "<parameter><id>decal</id><type>int</type><interpretation><texture/></interpretation></parameter>"
    "<parameter><id>lacquer</id><type>bool</type></parameter>"
    "<parameter><id>shade</id><type>float</type><size>3</size><interpretation><color/></interpretation>"
    "<lowerbound>0</lowerbound><upperbound>1</upperbound></parameter>"
    "<parameter><id>nowhere</id><type>float</type></parameter> </ShaderInfo>";

class StrangerPaint : public OxShader {
public:
    Oxint m_layers = 0, m_coat = 0, m_cells[2] = {1, 1}, m_decal = -1, m_lacquer = 0;
    float m_age = 0.0f;
    R3 m_shade;

    char* GetShaderInfo() override { return const_cast<char*>(PaintInfo); }
    // The document calls "age" another name of "wear", and gives "coat" a second one; neither is declared.
    void Register() override {
        oxsDeclareMember(this, "layers", m_layers);
        oxsDeclareMember(this, "coat", m_coat);
        oxsDeclareMember(this, "age", m_age);
        oxsDeclareMember(this, "cells", m_cells);
        oxsDeclareMember(this, "decal", m_decal);
        oxsDeclareMember(this, "lacquer", m_lacquer);
        oxsDeclareMember(this, "shade", m_shade);
    }
};

OX_EXPORT_OBJECT(StrangerPaint, StrangerPaint)
