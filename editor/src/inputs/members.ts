// Elements of a port that is a list of bundles: their members, given or left out.
import { isObject, type Json, type JsonObject } from '../document';
import type { Port } from '../host';

/** What an element gives for a member, or the member's default. */
export function memberOf(port: Port, element: Json, name: string): Json | undefined {
    const given = isObject(element) ? element[name] : undefined;
    return given ?? port.members!.find((member) => member.name === name)?.default;
}

/** The element with another value for a member; without one, the member is left out. */
export function withMember(element: Json | undefined, name: string, value: Json | undefined): JsonObject {
    const next: JsonObject = isObject(element) ? { ...element } : {};
    if (value === undefined) delete next[name];
    else next[name] = value;
    return next;
}
