import assert from 'node:assert/strict';
import test from 'node:test';
import { mayLink } from '../../editor/src/catalogue';
import { History, parse, withKey, withValue, type Json, type Path } from '../../editor/src/document';
import { excerpt, readGraph } from '../../editor/src/graph';

const TEXT = `{
  "version": 1,
  "comment": "kept",
  "nodes": {
    "a": { "type": "noise", "inputs": { "seed": 3.0, "octaves": 6 }, "later": {"x":1} },
    "b": {
      "type": "gradient",
      "inputs": { "input": { "from": "a.result" }, "gradient": [
        { "position": 0, "comment": "night" },
        { "position": 1 } ] }
    }
  },
  "outputs": { "color": "b.result" }
}
`;

/** Each edit: what is replaced in the text above, and by what. */
const EDITS: [string, Path, Json | undefined, string, string][] = [
    ['a value', ['nodes', 'a', 'inputs', 'octaves'], 2, '"octaves": 6', '"octaves": 2'],
    ['an equal value keeps its digits', ['nodes', 'a', 'inputs', 'seed'], 3, '', ''],
    ['a member at the end of a line', ['nodes', 'a', 'inputs', 'gain'], 0.5, '6 }', '6, "gain": 0.5 }'],
    ['a member with a line of its own', ['outputs', 'x'], 'a.result', '"b.result" }', '"b.result", "x": "a.result" }'],
    [
        'objects on the way',
        ['ui', 'groups', 0],
        { label: 'g' },
        '"b.result" }\n',
        '"b.result" },\n  "ui": { "groups": [{ "label": "g" }] }\n',
    ],
    ['the first member goes', ['nodes', 'a', 'inputs', 'seed'], undefined, '"seed": 3.0, ', ''],
    ['the last member goes', ['nodes', 'a', 'inputs', 'octaves'], undefined, ', "octaves": 6', ''],
    ['the only member goes', ['outputs', 'color'], undefined, '{ "color": "b.result" }', '{}'],
    [
        'a node goes with its line',
        ['nodes', 'a'],
        undefined,
        '"a": { "type": "noise", "inputs": { "seed": 3.0, "octaves": 6 }, "later": {"x":1} },\n    ',
        '',
    ],
    ['what is not there does not go', ['nodes', 'c'], undefined, '', ''],
    [
        'one leaf of an array of objects',
        ['nodes', 'b', 'inputs', 'gradient'],
        [{ position: 0.25, comment: 'night' }, { position: 1 }],
        '"position": 0,',
        '"position": 0.25,',
    ],
    [
        'an element between',
        ['nodes', 'b', 'inputs', 'gradient'],
        [{ position: 0, comment: 'night' }, { position: 0.5 }, { position: 1 }],
        '        { "position": 1 }',
        '        { "position": 0.5 },\n        { "position": 1 }',
    ],
    [
        'an element goes',
        ['nodes', 'b', 'inputs', 'gradient'],
        [{ position: 1 }],
        '{ "position": 0, "comment": "night" },\n        ',
        '',
    ],
    ['a value becomes a link', ['nodes', 'a', 'inputs', 'seed'], { from: 'b.result' }, '3.0', '{ "from": "b.result" }'],
];

test('edits change what they must and nothing else', () => {
    for (const [name, path, value, from, to] of EDITS) {
        const text = withValue(TEXT, path, value);
        assert.equal(text, TEXT.replace(from, to), name);
        assert.equal(parse(text).fault, undefined, name);
    }
    assert.equal(withKey(TEXT, ['nodes', 'a'], 'cloud'), TEXT.replace('"a":', '"cloud":'));
    assert.equal(
        withValue('{"nodes":{"a":{}}}', ['nodes', 'b'], { x: [1, 2] }),
        '{"nodes":{"a":{}, "b": {"x": [1, 2]}}}',
    );
    assert.equal(
        withValue('{\r\n  "nodes": {}\r\n}', ['nodes', 'a'], 1),
        '{\r\n  "nodes": {\r\n    "a": 1\r\n  }\r\n}',
    );
});

test('undo and redo go through every state, byte for byte', () => {
    const history = new History(TEXT);
    const states = [TEXT];
    for (let i = 0; i < 500; i++) {
        history.replace(
            withValue(history.text, ['nodes', i % 3 ? 'a' : 'b', 'inputs', `x${i % 7}`], i % 5 ? i : undefined),
        );
        if (history.text !== states.at(-1)) states.push(history.text);
    }
    for (const state of states.slice(0, -1).reverse()) {
        history.undo();
        assert.equal(history.text, state);
    }
    assert.equal(history.canUndo, false);
    for (const state of states.slice(1)) {
        history.redo();
        assert.equal(history.text, state);
    }
    assert.equal(history.canRedo, false);
});

test('a gesture is undone at once, another edit ends what could be redone', () => {
    const history = new History('0');
    for (const text of ['1', '12', '123']) history.replace(text, 'slider');
    history.endGesture();
    history.replace('1234', 'slider');
    history.undo();
    assert.equal(history.text, '123');
    history.undo();
    assert.equal(history.text, '0');
    history.replace('9');
    assert.equal(history.canRedo, false);
    // Back where it began, a gesture leaves nothing behind.
    history.replace('98', 'slider');
    history.replace('9', 'slider');
    history.undo();
    assert.equal(history.text, '0');
});

test('a graph has the wires of all depths; an excerpt what one node needs', () => {
    const text = withValue(TEXT, ['nodes', 'b', 'inputs', 'gradient', 1, 'color'], { from: 'a.result' });
    const graph = readGraph(withValue(text, ['nodes', 'c'], { type: 'noise' }));
    const wires = graph.wires.map((wire) => `${wire.source}.${wire.port} ${wire.target} ${wire.path}`);
    assert.deepEqual(wires, ['a.result b input', 'a.result b gradient[1].color', 'b.result $outputs color']);
    const cut = readGraph(excerpt(graph, 'b.result'));
    assert.deepEqual([...cut.nodes.keys()], ['a', 'b']);
    assert.deepEqual(
        cut.outputs.map((output) => output.from),
        ['b.result'],
    );
    assert.match(readGraph('{\n  "nodes": }').fault!, /line 2/);
});

test('wires may lead where the host converts', () => {
    const types = [
        'Float',
        'Bool',
        'UInt32',
        'ColorA',
        'Color',
        'Vector',
        'Vector2d',
        'String',
        'TimeValue',
        'ShadingContext',
    ];
    const targets = (from: string) => types.filter((to) => mayLink(from, `${to}Function`)).join(' ');
    const scalars = 'Float Bool UInt32 ColorA Color';
    assert.deepEqual(types.map(targets), [
        scalars,
        scalars,
        scalars,
        scalars,
        `${scalars} Vector`,
        'Color Vector',
        'Vector2d',
        'String',
        'TimeValue',
        'ShadingContext',
    ]);
});
