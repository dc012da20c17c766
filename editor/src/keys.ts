// What keys do, in one table: for the page and for its help.
import { session } from './session.svelte';

export interface Key {
    keys: string[];
    does: string;
    run: () => void;
    /** Also while somebody types into a field. */
    isEverywhere?: boolean;
}

/** `Mod` is Ctrl, or Command where keyboards have it. */
export const KEYS: Key[] = [
    { keys: ['Mod+s'], does: 'Save', run: () => void session.save(), isEverywhere: true },
    { keys: ['Mod+z'], does: 'Undo', run: () => session.undo(), isEverywhere: true },
    { keys: ['Mod+Shift+z', 'Mod+y'], does: 'Redo', run: () => session.redo(), isEverywhere: true },
    { keys: ['a'], does: 'Add a node', run: () => session.search() },
    { keys: ['Mod+f', '/'], does: 'Find a node', run: () => session.findNode() },
    { keys: ['l'], does: 'Link an output of the chosen node', run: () => session.linkChosen() },
    { keys: ['Mod+d'], does: 'Duplicate', run: () => session.duplicate() },
    { keys: ['Mod+g'], does: 'Group the chosen nodes', run: () => session.group() },
    { keys: ['Mod+a'], does: 'Choose all nodes', run: () => session.chooseAll() },
    { keys: ['Escape'], does: 'Choose none', run: () => (session.selection = []) },
    { keys: ['f'], does: 'Fit what is chosen, or all', run: () => session.fit() },
    { keys: ['h'], does: 'Show what each node costs', run: () => void session.measure() },
    { keys: ['v'], does: 'Look at the chosen node, or at the output again', run: () => session.look() },
    { keys: ['?'], does: 'Show the keys', run: () => (session.isHelpShown = !session.isHelpShown) },
];

/** What the browser or the graph does by itself. */
export const OTHER_KEYS = [
    { keys: ['Mod+c', 'Mod+x', 'Mod+v'], does: 'Copy, cut, paste; the copy is a document' },
    { keys: ['Delete', 'Backspace'], does: 'Delete' },
    { keys: ['Tab', 'Enter'], does: 'Go to the next node or wire, choose it' },
    { keys: ['Arrows'], does: 'Move the chosen nodes' },
    { keys: ['Shift+Drag'], does: 'Choose with a box' },
    { keys: ['Mod+Click'], does: 'Choose one more' },
];

const isField = (target: EventTarget | null) =>
    target instanceof HTMLElement && (/^(INPUT|SELECT|TEXTAREA)$/.test(target.tagName) || target.isContentEditable);

const isButton = (target: EventTarget | null) =>
    target instanceof HTMLElement && /^(BUTTON|SUMMARY|A)$/.test(target.tagName);

function fits(event: KeyboardEvent, keys: string): boolean {
    const parts = keys.split('+');
    const key = parts.pop() || '+';
    if (parts.includes('Mod') !== (event.ctrlKey || event.metaKey) || event.altKey) return false;
    if (key.length > 1 || /[a-z ]/.test(key)) if (parts.includes('Shift') !== event.shiftKey) return false;
    return event.key.toLowerCase() === key.toLowerCase();
}

export function onKey(event: KeyboardEvent) {
    if (session.palette || session.conflict || event.defaultPrevented) return;
    for (const key of KEYS) {
        if (!key.keys.some((keys) => fits(event, keys))) continue;
        if (isField(event.target) && !key.isEverywhere) return;
        if (isButton(event.target) && (event.key === ' ' || event.key === 'Enter')) return;
        if (session.isView && key.does !== 'Show the keys') return;
        event.preventDefault();
        key.run();
        return;
    }
}
