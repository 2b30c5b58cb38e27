// The programs of the picture. A first pass finds the brightest cell of each pixel, a second one colours it.

// Covers what of the picture has to be drawn, in pixels from the lower left.
export const cVertices = `#version 300 es
precision highp float;
in vec2 aPlace;
uniform vec2 uSize;
void main() { gl_Position = vec4(aPlace / uSize * 2.0 - 1.0, 0.0, 1.0); }
`;

// A pixel gets the brightest of the cells that touch it, and only those: distances are those of its nearest and
// farthest corner from own ship, bearings those of its outermost corners. The bearing is counted in rows from the
// nearest axis, where the numbers are small and exact.
export const cBrightest = `#version 300 es
precision highp float;
precision highp int;
precision highp usampler2D;
uniform usampler2D uCells;
uniform highp sampler2D uMeta;
uniform vec2 uCentre;
uniform float uPixelM, uRows, uRadius, uScale;
uniform vec2 uMiddle;
uniform bool uUniform;
out uint oValue;

const float cTurn = 6.28318530717958648;
const float cTouch = 1e-3;      // of a row: less is rounding
const float cTouchRing = 1e-4;  // of a cell

uint brightestOf(int row, vec2 reach) {
    vec4 meta = texelFetch(uMeta, ivec2(row, 0), 0);
    int first = max(int(floor((reach.x - meta.x) / meta.y + cTouchRing)), 0);
    int last = min(int(ceil((reach.y - meta.x) / meta.y - cTouchRing)) - 1, int(meta.z) - 1);
    uint most = 0u;
    for (int cell = first; cell <= last; ++cell) most = max(most, texelFetch(uCells, ivec2(cell, row), 0).r);
    return most;
}

void main() {
    oValue = 0u;
    if (uRows < 1.0) return;
    vec2 fromMiddle = max(abs(gl_FragCoord.xy - uMiddle) - 0.5, 0.0);
    if (length(fromMiddle) > uRadius) return;
    vec2 place = gl_FragCoord.xy - uCentre;
    vec2 away = abs(place);
    vec2 reach = vec2(length(max(away - 0.5, 0.0)), length(away + 0.5)) * uPixelM;
    bool alongX = away.x > away.y;
    float major = alongX ? away.x : away.y, minor = alongX ? away.y : away.x;
    bool isAhead = alongX ? place.x > 0.0 : place.y > 0.0;
    bool isRight = alongX ? (place.y < 0.0) == isAhead : (place.x > 0.0) == isAhead;
    float axis = (alongX ? 0.25 : 0.0) + (isAhead ? 0.0 : 0.5);
    int rows = int(uRows), from, to;
    if (major < 0.5) {
        from = 0;
        to = rows - 1;
    } else {
        float left = atan(minor - 0.5, minor < 0.5 ? max(major - 0.5, 0.0) : major + 0.5) / cTurn * uRows;
        float right = atan(minor + 0.5, major - 0.5) / cTurn * uRows;
        float axisRow = axis * uRows, whole = floor(axisRow), part = axisRow - whole;
        float low = part + (isRight ? left : -right), high = part + (isRight ? right : -left);
        from = int(whole) + int(floor(low + cTouch));
        to = int(whole) + int(ceil(high - cTouch)) - 1;
        to = min(to, from + rows - 1);
    }
    uint most = 0u;
    if (uUniform) {
        vec4 meta = texelFetch(uMeta, ivec2(0, 0), 0);
        int first = max(int(floor((reach.x - meta.x) / meta.y + cTouchRing)), 0);
        int last = min(int(ceil((reach.y - meta.x) / meta.y - cTouchRing)) - 1, int(meta.z) - 1);
        for (int i = from; i <= to; ++i) {
            int row = (i + rows) % rows;
            for (int cell = first; cell <= last; ++cell) most = max(most, texelFetch(uCells, ivec2(cell, row), 0).r);
        }
    } else {
        for (int i = from; i <= to; ++i) most = max(most, brightestOf((i + rows) % rows, reach));
    }
    oValue = uint(float(most) * uScale + 0.5);
}
`;

// Sectors that were not renewed for two turns fade, down to a quarter; trails lie below what is no echo.
export const cColours = `#version 300 es
precision highp float;
precision highp int;
precision highp usampler2D;
uniform usampler2D uValues;
uniform usampler2D uTrails;
uniform sampler2D uTable;
uniform highp sampler2D uMeta;
uniform vec2 uCentre, uMiddle;
uniform float uRadius, uRows, uNow, uTurn, uDim;
uniform vec3 uOutside, uTrail;
uniform bool uFades, uHasTrails;
out vec4 oColour;

void main() {
    ivec2 pixel = ivec2(gl_FragCoord.xy);
    if (length(max(abs(gl_FragCoord.xy - uMiddle) - 0.5, 0.0)) > uRadius) {
        oColour = vec4(uOutside, 1.0);
        return;
    }
    uint value = texelFetch(uValues, pixel, 0).r;
    vec3 dark = texelFetch(uTable, ivec2(0, 0), 0).rgb;
    vec3 colour = texelFetch(uTable, ivec2(int(value >> 4), 0), 0).rgb;
    if (uHasTrails) {
        float trail = float(texelFetch(uTrails, pixel, 0).r) / 65535.0;
        float echo = clamp(dot(abs(colour - dark), vec3(2.0)), 0.0, 1.0);
        colour = mix(mix(colour, uTrail, 0.85 * trail), colour, echo);
    }
    if (uFades && uRows >= 1.0) {
        vec2 place = gl_FragCoord.xy - uCentre;
        int row = int(fract(atan(place.x, place.y) / 6.28318530717958648) * uRows) % int(uRows);
        float age = (uNow - texelFetch(uMeta, ivec2(row, 0), 0).w) / uTurn;
        colour = mix(colour, dark, 0.75 * clamp(age - 2.0, 0.0, 1.0));
    }
    oColour = vec4(mix(colour, dark, uDim), 1.0);
}
`;

// What only one of two pictures has is in its colour, what both have in a quiet one.
export const cDifference = `#version 300 es
precision highp float;
precision highp int;
precision highp usampler2D;
uniform usampler2D uValues;
uniform usampler2D uTrails;
uniform sampler2D uTable;
uniform vec2 uMiddle;
uniform float uRadius, uThreshold, uGain;
uniform vec3 uOutside, uOnlyA, uOnlyB, uBoth;
out vec4 oColour;

void main() {
    ivec2 pixel = ivec2(gl_FragCoord.xy);
    if (length(max(abs(gl_FragCoord.xy - uMiddle) - 0.5, 0.0)) > uRadius) {
        oColour = vec4(uOutside, 1.0);
        return;
    }
    float a = float(texelFetch(uValues, pixel, 0).r) / 65535.0, b = float(texelFetch(uTrails, pixel, 0).r) / 65535.0;
    a = a < uThreshold ? 0.0 : min(a * uGain, 1.0);
    b = b < uThreshold ? 0.0 : min(b * uGain, 1.0);
    vec3 dark = texelFetch(uTable, ivec2(0, 0), 0).rgb;
    float both = min(a, b), only = abs(a - b);
    vec3 colour = mix(dark, uBoth, both);
    oColour = vec4(mix(colour, a > b ? uOnlyA : uOnlyB, only), 1.0);
}
`;
