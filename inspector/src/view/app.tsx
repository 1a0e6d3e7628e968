// The page: tree, picture, properties, and time below.

import * as store from '../store';
import { DrawPanel } from './editing';
import { Header, Losses, Nothing, Notices } from './header';
import { Help } from './help';
import { HitPanel } from './hit_panel';
import { Picture } from './picture';
import { Properties } from './properties';
import { Chooser, DropTarget, RecordingBar } from './recordings';
import { Timeline } from './timeline';
import { Tree } from './tree';

function Side() {
    return (
        <aside>
            {store.mode.value === 'hit' && <HitPanel />}
            {store.mode.value === 'draw' && <DrawPanel />}
            <Properties />
        </aside>
    );
}

function Stage() {
    const lost = store.scene.value.stale.has('display');
    return (
        <main class={`${lost ? 'stale' : ''}${store.position.value === undefined ? '' : ' paused'}`}>
            <Picture />
            <Nothing />
        </main>
    );
}

export function App() {
    return (
        <>
            <Header />
            <RecordingBar />
            <Losses />
            <div class="columns">
                <Tree />
                <Stage />
                <Side />
            </div>
            <Timeline />
            <Notices />
            <Help />
            <Chooser />
            <DropTarget />
        </>
    );
}
