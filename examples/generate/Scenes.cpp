#include "Scenes.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace samples {

namespace {

/// The colours of a daytime.
struct Light {
    Color skyTop, skyBottom, clouds, sun, haze, meadow, wall;
    float sunX, sunY; // parts of the width and height
    float cloudCover;
};

const Light& lightOf(Daytime daytime) {
    static const std::array<Light, 3> lights = {{
        {{96, 148, 206},
         {250, 216, 186},
         {255, 236, 222},
         {255, 232, 170},
         {186, 178, 196},
         {104, 140, 70},
         {238, 214, 180},
         0.20f,
         0.24f,
         0.45f},
        {{36, 104, 190},
         {178, 214, 240},
         {250, 252, 255},
         {255, 248, 214},
         {150, 176, 200},
         {88, 150, 60},
         {244, 232, 210},
         0.76f,
         0.14f,
         0.40f},
        {{58, 62, 122},
         {246, 150, 92},
         {246, 176, 150},
         {255, 176, 84},
         {120, 100, 128},
         {84, 104, 58},
         {214, 168, 140},
         0.70f,
         0.36f,
         0.50f},
    }};
    return lights[static_cast<std::size_t>(daytime)];
}

/// What all painters of one picture need: lengths are parts of the shorter side, so that a scene looks alike at
/// every size.
struct Site {
    Painting& painting;
    const Light& light;
    unsigned seed;
    float width, height, unit;
};

/// The course of a ridge: one height for each column. `level` and `swing` are parts of the picture's height.
std::vector<float> ridge(const Site& site, float level, float swing, unsigned which) {
    const std::vector<std::int8_t> course =
        fractalNoise(static_cast<int>(site.width), 2, site.seed * 31 + which, 0.5f, 1);
    std::vector<float> line(static_cast<std::size_t>(site.width));
    for (std::size_t x = 0; x < line.size(); ++x)
        line[x] = site.height * (level + swing * course[x] / 127.0f);
    return line;
}

void paintSky(const Site& site) {
    site.painting.sky(site.light.skyTop, site.light.skyBottom, site.light.clouds, site.light.cloudCover);
    const Spot sun{site.width * site.light.sunX, site.height * site.light.sunY};
    site.painting.glow(sun, site.unit * 0.42f, site.light.sun, 0.75f);
    site.painting.ellipse(sun, site.unit * 0.062f, site.unit * 0.062f,
                          {site.light.sun, mix(site.light.sun, {255, 255, 255}, 0.4f), 0});
}

void paintHills(const Site& site, float horizon) {
    // Far hills fade into the haze.
    const Color forest{52, 84, 62};
    for (int i = 0; i < 3; ++i) {
        const float nearness = 0.25f + 0.25f * i;
        const Color color = mix(site.light.haze, forest, nearness);
        site.painting.below(ridge(site, horizon - 0.09f + 0.05f * i, 0.07f, 10 + i),
                            {color, mix(color, site.light.meadow, 0.5f), 10.0f + 8.0f * i});
    }
}

void paintTree(const Site& site, float x, float ground, float size) {
    Painting& painting = site.painting;
    const Paint bark{{92, 66, 46}, {70, 50, 36}, 26};
    painting.polygon({{x - size * 0.05f, ground - size * 0.6f},
                      {x + size * 0.05f, ground - size * 0.6f},
                      {x + size * 0.08f, ground},
                      {x - size * 0.08f, ground}},
                     bark);
    const Color leaves = mix(site.light.meadow, {30, 70, 34}, 0.55f);
    const Spot crowns[] = {{-0.22f, -0.62f}, {0.22f, -0.64f}, {0.0f, -0.82f}};
    for (const Spot& crown : crowns)
        painting.ellipse({x + crown.x * size, ground + crown.y * size}, size * 0.27f, size * 0.25f,
                         {mix(leaves, {220, 230, 140}, 0.25f), leaves, 46});
}

void paintHouse(const Site& site, float left, float ground, float size) {
    Painting& painting = site.painting;
    const float right = left + size;
    const float eaves = ground - size * 0.48f;
    const float gable = ground - size * 0.92f;
    const Paint wall{mix(site.light.wall, {255, 255, 255}, 0.2f), site.light.wall, 7};
    const Paint roof{{172, 66, 48}, {132, 44, 36}, 22};
    const Paint frame{{250, 250, 246}, {236, 234, 226}, 2};
    const Paint glass{{120, 160, 190}, {62, 88, 112}, 6};
    const Paint door{{52, 92, 88}, {36, 70, 70}, 10};
    // The chimney stands behind the roof; its shadow side gives the house a direction.
    painting.rectangle(left + size * 0.68f, gable - size * 0.02f, left + size * 0.78f, eaves - size * 0.1f,
                       {{150, 84, 66}, {120, 62, 50}, 18});
    painting.rectangle(left, eaves, right, ground, wall);
    painting.rectangle(right - size * 0.12f, eaves, right, ground,
                       {mix(site.light.wall, {60, 60, 80}, 0.25f), mix(site.light.wall, {60, 60, 80}, 0.35f), 7});
    painting.polygon({{left - size * 0.08f, eaves + size * 0.02f},
                      {left + size * 0.5f, gable},
                      {right + size * 0.08f, eaves + size * 0.02f}},
                     roof);
    painting.ellipse({left + size * 0.5f, eaves - size * 0.14f}, size * 0.07f, size * 0.07f, frame);
    painting.ellipse({left + size * 0.5f, eaves - size * 0.14f}, size * 0.052f, size * 0.052f, glass);
    for (const float x : {0.12f, 0.60f}) {
        const float windowLeft = left + size * x;
        const float windowTop = eaves + size * 0.12f;
        const float side = size * 0.18f;
        const float bar = size * 0.014f;
        painting.rectangle(windowLeft - bar, windowTop - bar, windowLeft + side + bar, windowTop + side + bar, frame);
        painting.rectangle(windowLeft, windowTop, windowLeft + side, windowTop + side, glass);
        painting.rectangle(windowLeft + side / 2 - bar / 2, windowTop, windowLeft + side / 2 + bar / 2,
                           windowTop + side, frame);
        painting.rectangle(windowLeft, windowTop + side / 2 - bar / 2, windowLeft + side,
                           windowTop + side / 2 + bar / 2, frame);
    }
    painting.rectangle(left + size * 0.38f, ground - size * 0.30f, left + size * 0.52f, ground, door);
    painting.ellipse({left + size * 0.495f, ground - size * 0.15f}, size * 0.01f, size * 0.01f,
                     {{240, 210, 120}, {220, 180, 80}, 0});
}

void paintFence(const Site& site, float ground, float size) {
    const Paint wood{{240, 236, 226}, {206, 200, 188}, 14};
    const float step = size * 1.1f;
    for (float x = -step / 2; x < site.width; x += step) {
        const float wide = size * 0.24f;
        site.painting.polygon({{x, ground},
                               {x, ground - size},
                               {x + wide / 2, ground - size * 1.2f},
                               {x + wide, ground - size},
                               {x + wide, ground}},
                              wood);
    }
    for (const float level : {0.35f, 0.8f})
        site.painting.rectangle(0, ground - size * level, site.width, ground - size * (level - 0.14f), wood);
}

void paintHouseScene(const Site& site) {
    paintSky(site);
    paintHills(site, 0.56f);
    const float ground = site.height * 0.80f;
    site.painting.below(ridge(site, 0.66f, 0.03f, 20),
                        {site.light.meadow, mix(site.light.meadow, {30, 60, 20}, 0.45f), 40});
    paintTree(site, site.width * 0.22f, ground, site.unit * 0.42f);
    paintHouse(site, site.width * 0.46f, ground, site.unit * 0.40f);
    paintTree(site, site.width * 0.90f, ground + site.unit * 0.02f, site.unit * 0.30f);
    paintFence(site, site.height * 0.93f, site.unit * 0.07f);
}

void paintSea(const Site& site, float horizon) {
    const Color deep = mix(site.light.skyTop, {16, 60, 84}, 0.6f);
    const std::vector<float> line(static_cast<std::size_t>(site.width), site.height * horizon);
    site.painting.below(line, {mix(site.light.skyBottom, deep, 0.55f), deep, 30});
    // The sun's road on the water: short strips that widen towards the beholder.
    const Color glitter = mix(site.light.sun, {255, 255, 255}, 0.3f);
    const float center = site.width * site.light.sunX;
    for (int i = 1; i < 26; ++i) {
        const float y = site.height * (horizon + (1 - horizon) * i * i / 700.0f);
        const float half = site.unit * (0.03f + 0.004f * i) * (1 + 0.5f * std::sin(i * 2.4f));
        const float thick = site.unit * (0.0012f + 0.0002f * i);
        site.painting.rectangle(center - half, y - thick, center + half, y + thick, {glitter, glitter, 10});
    }
}

void paintLighthouse(const Site& site, float x, float ground, float size) {
    Painting& painting = site.painting;
    const Paint white{{250, 246, 238}, {226, 222, 214}, 7};
    const Paint red{{206, 46, 40}, {176, 34, 34}, 8};
    const int bands = 6;
    const float tower = size * 0.76f;
    const auto halfWidth = [&](float part) { return size * (0.075f + 0.055f * part); };
    for (int i = 0; i < bands; ++i) {
        const float upper = static_cast<float>(i) / bands;
        const float lower = static_cast<float>(i + 1) / bands;
        painting.polygon({{x - halfWidth(upper), ground - tower * (1 - upper)},
                          {x + halfWidth(upper), ground - tower * (1 - upper)},
                          {x + halfWidth(lower), ground - tower * (1 - lower)},
                          {x - halfWidth(lower), ground - tower * (1 - lower)}},
                         i % 2 == 0 ? red : white);
    }
    const float gallery = ground - tower;
    painting.rectangle(x - size * 0.11f, gallery - size * 0.02f, x + size * 0.11f, gallery,
                       {{60, 60, 66}, {40, 40, 46}, 6});
    painting.glow({x, gallery - size * 0.08f}, size * 0.3f, {255, 240, 180}, 0.5f);
    painting.rectangle(x - size * 0.055f, gallery - size * 0.13f, x + size * 0.055f, gallery - size * 0.02f,
                       {{255, 244, 190}, {250, 214, 120}, 3});
    painting.polygon({{x - size * 0.075f, gallery - size * 0.13f},
                      {x, gallery - size * 0.22f},
                      {x + size * 0.075f, gallery - size * 0.13f}},
                     red);
    painting.rectangle(x - size * 0.03f, ground - size * 0.11f, x + size * 0.03f, ground,
                       {{70, 60, 56}, {50, 42, 40}, 8});
    for (const float level : {0.30f, 0.55f})
        painting.ellipse({x, ground - size * level}, size * 0.018f, size * 0.026f, {{50, 60, 74}, {36, 44, 56}, 4});
}

void paintLighthouseScene(const Site& site) {
    paintSky(site);
    paintSea(site, 0.62f);
    const float ground = site.height * 0.80f;
    // A headland that rises towards the tower and falls to the sea at the left.
    std::vector<float> land = ridge(site, 0, 0.015f, 30);
    for (std::size_t x = 0; x < land.size(); ++x) {
        const float part = x / site.width;
        land[x] += site.height * (0.98f - 0.19f * std::min(1.0f, std::max(0.0f, (part - 0.05f) / 0.45f)));
    }
    site.painting.below(land, {{126, 118, 104}, mix(site.light.meadow, {60, 56, 50}, 0.4f), 48});
    paintLighthouse(site, site.width * 0.60f, ground + site.unit * 0.01f, site.height * 0.55f);
    paintHouse(site, site.width * 0.76f, ground + site.unit * 0.03f, site.unit * 0.17f);
}

void paintBoat(const Site& site, float x, float water, float size, Color sail) {
    Painting& painting = site.painting;
    painting.polygon({{x - size * 0.5f, water - size * 0.14f},
                      {x + size * 0.58f, water - size * 0.16f},
                      {x + size * 0.38f, water},
                      {x - size * 0.38f, water}},
                     {{120, 60, 40}, {70, 34, 26}, 14});
    painting.rectangle(x - size * 0.015f, water - size * 1.25f, x + size * 0.015f, water - size * 0.14f,
                       {{110, 90, 70}, {90, 72, 56}, 6});
    painting.polygon({{x + size * 0.03f, water - size * 1.2f},
                      {x + size * 0.5f, water - size * 0.24f},
                      {x + size * 0.03f, water - size * 0.24f}},
                     {sail, mix(sail, {40, 40, 60}, 0.15f), 5});
    painting.polygon({{x - size * 0.03f, water - size * 1.05f},
                      {x - size * 0.03f, water - size * 0.24f},
                      {x - size * 0.42f, water - size * 0.24f}},
                     {mix(sail, {255, 255, 255}, 0.5f), sail, 5});
    // The mirror image, short and dim.
    painting.polygon({{x - size * 0.36f, water + size * 0.02f},
                      {x + size * 0.36f, water + size * 0.02f},
                      {x + size * 0.1f, water + size * 0.4f}},
                     {mix(sail, {20, 50, 70}, 0.6f), mix(sail, {20, 50, 70}, 0.85f), 26});
}

void paintHarbourScene(const Site& site) {
    paintSky(site);
    paintHills(site, 0.50f);
    paintSea(site, 0.54f);
    // Colours near the corners of the gamut: these differ most between the primaries.
    paintBoat(site, site.width * 0.24f, site.height * 0.66f, site.unit * 0.22f, {250, 20, 20});
    paintBoat(site, site.width * 0.80f, site.height * 0.70f, site.unit * 0.26f, {30, 235, 60});
    paintBoat(site, site.width * 0.48f, site.height * 0.84f, site.unit * 0.40f, {255, 200, 0});
}

} // namespace

Painting paint(const Photograph& photograph) {
    Painting painting(photograph.width, photograph.height, photograph.seed);
    const Site site{painting,
                    lightOf(photograph.daytime),
                    photograph.seed,
                    static_cast<float>(photograph.width),
                    static_cast<float>(photograph.height),
                    static_cast<float>(std::min(photograph.width, photograph.height))};
    switch (photograph.scene) {
    case Scene::house:
        paintHouseScene(site);
        break;
    case Scene::lighthouse:
        paintLighthouseScene(site);
        break;
    case Scene::harbour:
        paintHarbourScene(site);
        break;
    }
    painting.grain(4.0f, photograph.seed + 99);
    return painting;
}

} // namespace samples
