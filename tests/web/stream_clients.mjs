// Clients of others for what algtrack streams and exports; prints what they read as JSON.
//   node stream_clients.mjs PACKAGES live PORT SUB_PROTOCOL BLOCKS
//   node stream_clients.mjs PACKAGES mcap FILE
//   node stream_clients.mjs PACKAGES schemas
// PACKAGES is the folder with node_modules.
import { createRequire } from 'node:module';
import { open } from 'node:fs/promises';
import { createReadStream } from 'node:fs';
import { pathToFileURL } from 'node:url';
import { join } from 'node:path';

const [folder, command, ...rest] = process.argv.slice(2);
const require = createRequire(pathToFileURL(join(folder, 'package.json')));
const print = (value) => process.stdout.write(
  JSON.stringify(value, (key, item) => (typeof item === 'bigint' ? String(item) : item)),
  () => process.exit(0));
const textOf = (data) => new TextDecoder().decode(data);

/**
 * Subscribes to every channel, says `ready` on stderr and reads until each had a message and there
 * were so many blocks, or until the server leaves. A message is [topic, time in ns, payload].
 */
async function live(port, subProtocol, blocks) {
  const { WebSocket } = require('ws');
  const { FoxgloveClient } = require('@foxglove/ws-protocol');
  const client = new FoxgloveClient({ ws: new WebSocket(`ws://127.0.0.1:${port}`, [subProtocol]) });
  const result = { serverInfo: null, channels: [], messages: [], errors: [], closed: false };
  const topics = new Map();
  client.on('serverInfo', (info) => { result.serverInfo = info; });
  client.on('status', (status) => result.errors.push(status.message));
  client.on('error', (error) => result.errors.push(String(error)));
  client.on('advertise', (channels) => {
    channels.forEach((channel) => {
      result.channels.push(channel);
      topics.set(client.subscribe(channel.id), channel.topic);
    });
    process.stderr.write('ready\n');
  });
  await new Promise((done) => {
    const silent = new Set();
    let left = Number(blocks);
    client.on('advertise', (channels) => channels.forEach(({ topic }) => silent.add(topic)));
    client.on('close', () => { result.closed = true; done(); });
    client.on('message', ({ subscriptionId, timestamp, data }) => {
      const topic = topics.get(subscriptionId);
      result.messages.push([topic, timestamp, textOf(data)]);
      silent.delete(topic);
      if (topic === '/alg/block') --left;
      if (left <= 0 && silent.size === 0) done();
    });
  });
  client.close();
  print(result);
}

/** The same file by its index and as a stream. */
async function mcap(file) {
  const { McapIndexedReader, McapStreamReader } = require('@mcap/core');
  const handle = await open(file);
  const reader = await McapIndexedReader.Initialize({
    readable: {
      size: async () => BigInt((await handle.stat()).size),
      read: async (offset, size) => {
        const bytes = new Uint8Array(Number(size));
        await handle.read(bytes, 0, bytes.length, Number(offset));
        return bytes;
      },
    },
  });
  const channels = [...reader.channelsById.values()].map((channel) => {
    const schema = reader.schemasById.get(channel.schemaId);
    return { ...channel, schemaName: schema.name, schemaEncoding: schema.encoding,
      schema: textOf(schema.data), metadata: undefined };
  });
  const topicOf = (id) => reader.channelsById.get(id).topic;
  const indexed = [];
  for await (const message of reader.readMessages())
    indexed.push([topicOf(message.channelId), message.logTime, textOf(message.data)]);

  const stream = new McapStreamReader({ validateCrcs: true });
  const streamed = [];
  for await (const bytes of createReadStream(file)) {
    stream.append(bytes);
    for (let record; (record = stream.nextRecord());)
      if (record.type === 'Message')
        streamed.push([topicOf(record.channelId), record.logTime, textOf(record.data)]);
  }
  print({ channels, indexed, streamed, done: stream.done(), chunks: reader.chunkIndexes.length,
    count: reader.statistics.messageCount, start: reader.statistics.messageStartTime,
    end: reader.statistics.messageEndTime });
}

function schemas() {
  const all = require('@foxglove/schemas/jsonschema');
  print(Object.fromEntries(['SceneUpdate', 'FrameTransforms', 'PosesInFrame', 'Log'].map(
    (name) => [`foxglove.${name}`, JSON.stringify(all[name])])));
}

await { live, mcap, schemas }[command](...rest);
