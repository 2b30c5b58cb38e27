// A program of the graphics card, from its source.

import { cVertices } from "./shaders.js";

/** @typedef {{ program: WebGLProgram, at: Record<string, WebGLUniformLocation | null> }} Program */

export class NoWebGl extends Error {}

/**
 * @param {WebGL2RenderingContext} gl
 * @param {string} fragments
 * @returns {Program}
 */
export function linked(gl, fragments) {
    const program = gl.createProgram();
    for (const [kind, source] of /** @type {[number, string][]} */ ([
        [gl.VERTEX_SHADER, cVertices],
        [gl.FRAGMENT_SHADER, fragments],
    ])) {
        const shader = gl.createShader(kind);
        if (!shader) throw new NoWebGl("the context is lost");
        gl.shaderSource(shader, source);
        gl.compileShader(shader);
        gl.attachShader(program, shader);
    }
    gl.bindAttribLocation(program, 0, "aPlace");
    gl.linkProgram(program);
    if (!gl.getProgramParameter(program, gl.LINK_STATUS) && !gl.isContextLost())
        throw new NoWebGl(gl.getProgramInfoLog(program) ?? "a program of the picture does not link");
    /** @type {Program["at"]} */
    const at = {};
    const count = gl.isContextLost() ? 0 : gl.getProgramParameter(program, gl.ACTIVE_UNIFORMS);
    for (let i = 0; i < count; ++i) {
        const name = gl.getActiveUniform(program, i)?.name ?? "";
        at[name] = gl.getUniformLocation(program, name);
    }
    return { program, at };
}
