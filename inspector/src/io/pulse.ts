// Whether the gateway still answers while its stream is silent.
//
// A stream says nothing as long as nothing changes, and EventSource does not show the comments that keep it open. A gateway that
// hangs, or a network that has gone, would look like a quiet cockpit. So after a silence the gateway is asked for something small.

const period = 5_000;
const silence = 10_000;

export class Pulse {
    private heard = Date.now();
    private asking = false;
    private answers = true;

    // `ask` fails if there is no answer in time. `tell` hears when that begins and when it is over.
    constructor(
        private readonly ask: () => Promise<unknown>,
        private readonly tell: (answers: boolean) => void,
    ) {
        setInterval(() => void this.check(), period);
    }

    // Something has arrived.
    beat(): void {
        this.heard = Date.now();
    }

    private async check(): Promise<void> {
        if (this.asking || (this.answers && Date.now() - this.heard < silence)) return;
        this.asking = true;
        let answered = true;
        try {
            await this.ask();
            this.beat();
        } catch {
            answered = false;
        }
        this.asking = false;
        if (answered === this.answers) return;
        this.answers = answered;
        this.tell(answered);
    }
}
