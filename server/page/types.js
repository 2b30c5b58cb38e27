// What the server sends, as docs of types; nothing of this file runs.

/**
 * What the antenna received in one direction. Bearings are in 1 / 2^32 of a turn.
 * @typedef {object} Spoke
 * @property {number} timeMs
 * @property {number} from
 * @property {number} to
 * @property {number} firstM near edge of the first cell
 * @property {number} cellM length of a cell; 0: not known
 * @property {number} sequence
 * @property {number} heading degrees, or NaN
 * @property {number} bits of a cell, of which the bytes hold as many as they need
 * @property {number} reference of the bearing: 0 unknown, 1 the bow, 2 north
 * @property {Cells} cells
 */
/** @typedef {Uint8Array | Uint16Array | Uint32Array} Cells */

/**
 * @typedef {object} Batch
 * @property {number} source
 * @property {number} epoch rises with each jump
 * @property {boolean} before the place of a jump
 * @property {boolean} whole the picture is
 * @property {Spoke[]} spokes
 */

/**
 * @typedef {object} State
 * @property {"a" | "b"} picture
 * @property {number} source
 * @property {number} epoch
 * @property {"live" | "replay"} mode
 * @property {boolean} playing
 * @property {number} time_ms
 * @property {number | "max"} speed
 * @property {string | null} [id] of the recording that is played
 * @property {number | null} [behind_ms]
 * @property {boolean} [whole]
 * @property {number} [thinned_spokes]
 * @property {number | null} [missing_on_wire]
 */

/**
 * @typedef {object} Target
 * @property {number} [target] its number
 * @property {string} [target_status]
 * @property {number} [distance_nm]
 * @property {number} [bearing_deg]
 * @property {string} [bearing_reference]
 * @property {number} [mmsi]
 * @property {string} [ship_name]
 * @property {number} [latitude_deg]
 * @property {number} [longitude_deg]
 * @property {number} [course_deg]
 * @property {number} [speed_kn]
 * @property {number} [heading_deg]
 */

/**
 * @typedef {object} OwnShip
 * @property {number} [latitude_deg]
 * @property {number} [longitude_deg]
 * @property {number} [course_deg]
 * @property {number} [speed_kn]
 * @property {number} [heading_deg]
 * @property {number} [depth_m]
 */

/**
 * @typedef {object} StreamRow
 * @property {string} stream
 * @property {string} address
 * @property {number} [records_per_second]
 * @property {number} [bytes_per_second]
 * @property {number | null} [last_ms]
 * @property {number | null} [silent_ms]
 * @property {number | null} [jitter_p50_ms]
 * @property {number | null} [jitter_p99_ms]
 * @property {number} [lost]
 * @property {number} [missing_on_wire]
 */

/**
 * @typedef {object} Note
 * @property {number} time_ms
 * @property {string} text
 */

/**
 * @typedef {object} Recording
 * @property {string} id
 * @property {string} name
 * @property {number} first_ms
 * @property {number} last_ms
 * @property {number} files
 * @property {number} records
 * @property {number} size_bytes
 * @property {"finished" | "unfinished" | "recording" | "damaged"} state
 * @property {number | null} lost
 * @property {boolean} kept
 * @property {number} notes
 * @property {string} radar
 */

/**
 * @typedef {object} Radar
 * @property {string} radar SERIAL/ID
 * @property {string} serial
 * @property {number} id
 * @property {number | null} heard_ms
 * @property {string | null} recording
 */

/**
 * @typedef {object} Timeline
 * @property {number} from_ms
 * @property {number} to_ms
 * @property {number} columns
 * @property {{ stream: string, address: string, min: number[], mean: number[], max: number[] }[]} streams
 * @property {{ stream: string, address: string, from_ms: number, to_ms: number }[]} gaps
 * @property {{ layer: string, from_ms: number, to_ms: number, count: number }[]} losses
 * @property {Note[]} notes
 * @property {{ name?: string, first_ms: number, last_ms: number, recording?: string }[]} files
 * @property {boolean | { from_ms: number, to_ms: number }[]} kept
 */

/**
 * @typedef {object} ServerInfo
 * @property {string} version
 * @property {number} time_ms
 * @property {{ record: boolean, replay: boolean }} allow
 * @property {{ name: string, free_bytes: number, hours_left: number | null }[]} roots
 * @property {number} viewers
 */

export {};
