#include "KelRenderingObject.h"

#include "Oxbeam/OxExport.h"
#include "Oxbeam/OxFunctions.h"

static const char ShaderInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>renderingobject</type>"
    "<package>Kel</package>"
    "<id>Kel</id>"
    "<longname>Kel Rendering Object</longname>"
    "<group>"
    "<longname>Multiprocessing Options</longname>"
    "<help>Enable the use of several rendering threads in stand alone mode, i.e. when not using clients which are "
    "connected via network. This is particularly usefull for hared memory machines with many CPU's.</help>"
    "<parameter>"
    "<id>multiThreading</id>"
    "<longname>MultiThreading switch</longname>"
    "<type>bool</type>"
    "<default>false</default>"
    "<help>Activate or disactivate multithreading</help>"
    "</parameter>"
    "<parameter>"
    "<id>numThreads</id>"
    "<longname>Number of Threads</longname>"
    "<type>int</type>"
    "<default>1</default>"
    "<lowerbound>1</lowerbound>"
    "<upperbound>128</upperbound>"
    "<help>Number of simultanuous rendering threads.</help>"
    "</parameter>"
    "</group>"
    "<group>"
    "<longname>RenderingAccuracy</longname>"
    "<help>This controls options to limit the generation of secondary rays.</help>"
    "<parameter>"
    "<id>reflectiveAccuracy</id>"
    "<longname>Reflective Accuracy</longname>"
    "<type>float</type>"
    "<default>0.01</default>"
    "<lowerbound>0.01</lowerbound>"
    "<upperbound>0.5</upperbound>"
    "<help>Sets the maximal error for rreflections. Rays with a contribution lower than this value will not be "
    "traced.</help>"
    "</parameter>"
    "<parameter>"
    "<id>refractiveAccuracy</id>"
    "<longname>Refractive Accuracy</longname>"
    "<type>float</type>"
    "<default>0.01</default>"
    "<lowerbound>0.01</lowerbound>"
    "<upperbound>0.5</upperbound>"
    "<help>Sets the maximal error for refractions. Rays with a contribution lower than this value will not be "
    "traced.</help>"
    "</parameter>"
    "<parameter>"
    "<id>transparentAccuracy</id>"
    "<longname>Transparent Accuracy</longname>"
    "<type>float</type>"
    "<default>0.01</default>"
    "<lowerbound>0.01</lowerbound>"
    "<upperbound>0.5</upperbound>"
    "<help>Sets the maximal error for transparency. Rays with a contribution lower than this value will not be "
    "traced.</help>"
    "</parameter>"
    "<parameter>"
    "<id>recursionLimit</id>"
    "<longname>Recursion Limit</longname>"
    "<type>int</type>"
    "<default>25</default>"
    "<lowerbound>0</lowerbound>"
    "<upperbound>128</upperbound>"
    "<help>Sets the hard limit for ray recursion depth. Rays with a depth higher than this limit will not be traced, "
    "no matter the importance.</help>"
    "</parameter>"
    "<parameter>"
    "<id>rayEpsilon</id>"
    "<longname>Ray Epsilon</longname>"
    "<type>float</type>"
    "<default>0.01</default>"
    "<lowerbound>0.0000001</lowerbound>"
    "<upperbound>100</upperbound>"
    "<help>The magic number</help>"
    "</parameter>"
    "</group>"
    "<parameter>"
    "<id>samplesPerPixel</id>"
    "<longname>Samples Per Pixel</longname>"
    "<type>int</type>"
    "<default>1</default>"
    "<lowerbound>1</lowerbound>"
    "<upperbound>24</upperbound>"
    "<help>Number of maximum samples per pixel</help>"
    "</parameter>"
    "<parameter>"
    "<id>softShadows</id>"
    "<longname>Smooth Shadows</longname>"
    "<type>bool</type>"
    "<default>false</default>"
    "<help>Enables soft shadows computation</help>"
    "</parameter>"
    "<parameter>"
    "<id>fuzzyLights</id>"
    "<longname>fuzzy light effects</longname>"
    "<type>bool</type>"
    "<default>false</default>"
    "<help>Enables fuzzy light effects.</help>"
    "</parameter>"
    "<parameter>"
    "<id>glossySurfaces</id>"
    "<longname>glossy surfaces effects</longname>"
    "<type>bool</type>"
    "<default>false</default>"
    "<help>Enables glossy surfaces effects.</help>"
    "</parameter>"
    " </ShaderInfo>";

KelRenderingObject::KelRenderingObject() {
    for (KelRay& ray : m_rays) ray.setRo(this);
}

char* KelRenderingObject::GetShaderInfo() { return const_cast<char*>(ShaderInfo); }

void KelRenderingObject::Register() {
    OxRenderingObject::Register();
    Init();
    oxsDeclareMember(this, "wireframe", m_wireframe);
    oxsDeclareMember(this, "numFuzzySamples", m_numFuzzySamples);
    oxsDeclareMember(this, "softShadows", m_softShadows);
    oxsDeclareMember(this, "receiveShadow", m_receiveShadow);
    oxsDeclareMember(this, "fuzzyLights", m_fuzzyLights);
    oxsDeclareMember(this, "glossySurfaces", m_glossySurfaces);
    oxsDeclareMember(this, "transparentAccuracy", m_transparentAccuracy);
    oxsDeclareMember(this, "reflectiveAccuracy", m_reflectiveAccuracy);
    oxsDeclareMember(this, "refractiveAccuracy", m_refractiveAccuracy);
}

// Every pass over every tile draws its own sequence, whichever thread renders it.
void KelRenderingObject::initTile(unsigned threadID, unsigned tileID) {
    m_rays[threadID].setSeed(oxGetSampleIndex() * m_tilesPerFrame + tileID);
}

void KelRenderingObject::initRay(const OxState& state, unsigned, unsigned threadID) {
    KelRay& ray = m_rays[threadID];
    ray.init();
    oxsSetPrivatePtr(const_cast<OxState*>(&state), &ray);
}

// Packets carry no record: their shading spawns no secondary rays.
void KelRenderingObject::initRay4(OxState4&, unsigned, unsigned) {}

OX_EXPORT_OBJECT(Kel, KelRenderingObject)
